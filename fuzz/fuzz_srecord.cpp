// The S-record reader: arbitrary bytes read from memory as S-records, with
// records placed as they come while they ascend (the public entry point's
// way) and by sorting; both must give the same image and report. (The
// windows between the two are the HEX reader's, fuzzed there.) A read image
// must be well formed and come back the same through the HEX, S-record and
// binary writers.
#include "fuzz_common.h"
#include "formats.h"
#include "memory_image.h"
#include "srecord_reader.h"

#include <string>

using namespace hexblocks;

namespace {

using hexblocks::detail::fullread_t;
using hexblocks::detail::placement_t;

bool sameReport(const fullread_t& a, const fullread_t& b)
{
    return a.status == b.status && a.line == b.line && a.reason == b.reason && a.text == b.text &&
           a.ignoredStartLines == b.ignoredStartLines && a.sawEndRecord == b.sawEndRecord &&
           a.repeatedBytes == b.repeatedBytes && a.firstRepeatLine == b.firstRepeatLine;
}

fullread_t readWith(const uint8_t* data, size_t size, placement_t placement, MemoryImage& image)
{
    hexblocks::detail::MemoryText source(data, size);
    return hexblocks::detail::readSrecords(source, image, placement);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    MemoryImage image, sorted;
    read_options_t options;
    options.detect = false;
    options.format = file_format_t::SRECORD;
    const read_result_t result = readMemory(image, data, size, options);
    const fullread_t bySorting = readWith(data, size, placement_t::SORTING, sorted);
    FUZZ_CHECK(result.ok() == (bySorting.status == fullread_t::status_t::OK));
    FUZZ_CHECK(result.ok() == result.reason.empty());
    FUZZ_CHECK(result.line == bySorting.line);
    if (!result.ok()) {
        FUZZ_CHECK(image.empty() && !image.hasStartAddress());
        return 0;
    }
    MemoryImage ascending;
    const fullread_t byAscending = readWith(data, size, placement_t::ASCENDING, ascending);
    FUZZ_CHECK(sameReport(byAscending, bySorting));
    FUZZ_CHECK(sameSegments(image, sorted) && sameSegments(ascending, sorted));
    FUZZ_CHECK(linearStart(image) == linearStart(sorted) && image.header() == sorted.header());
    checkSegments(image);
    checkReadBackInEveryFormat(image);
    return 0;
}
