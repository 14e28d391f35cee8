// The full-format HEX reader: arbitrary bytes read from memory into a
// MemoryImage as records come while they ascend, with the window method and
// by sorting: all three must give the same image and the same report. A read
// image must be well formed, copy out the same bytes it holds, and come back
// unchanged through IntelHexFile blocks.
#include "image_blocks.h"
#include "fuzz_common.h"
#include "full_format_reader.h"
#include "formats.h"
#include "memory_image.h"

#include <algorithm>
#include <vector>

using namespace hexblocks;

namespace {

using hexblocks::detail::fullread_t;
using hexblocks::detail::placement_t;

bool sameImage(const MemoryImage& a, const MemoryImage& b)
{
    if (a.segments().size() != b.segments().size() || a.hasStartAddress() != b.hasStartAddress() ||
        a.startAddress().type != b.startAddress().type || a.startAddress().value != b.startAddress().value)
        return false;
    for (size_t i = 0; i < a.segments().size(); ++i)
        if (a.segments()[i].address != b.segments()[i].address || a.segments()[i].bytes != b.segments()[i].bytes)
            return false;
    return true;
}

bool sameReport(const fullread_t& a, const fullread_t& b)
{
    return a.status == b.status && a.line == b.line && a.reason == b.reason && a.text == b.text && a.type == b.type &&
           a.ignoredStartLines == b.ignoredStartLines && a.sawEndRecord == b.sawEndRecord &&
           a.repeatedBytes == b.repeatedBytes && a.firstRepeatLine == b.firstRepeatLine;
}

void checkImage(const MemoryImage& image)
{
    const std::vector<segment_t>& segments = image.segments();
    uint64_t data = 0;
    for (size_t i = 0; i < segments.size(); ++i) {
        FUZZ_CHECK(!segments[i].bytes.empty());
        FUZZ_CHECK(segments[i].endAddress() <= 0x100000000ull);
        FUZZ_CHECK(i == 0 || segments[i - 1].endAddress() < segments[i].address); // a gap between segments
        FUZZ_CHECK(image.hasDataAt(segments[i].address) && image.hasDataAt(segments[i].lastAddress()));
        FUZZ_CHECK(image.copyRange(segments[i].address, segments[i].bytes.size(), 0) == segments[i].bytes);
        data += segments[i].bytes.size();
        if (i > 0)
            FUZZ_CHECK(!image.hasDataAt(segments[i].address - 1));
    }
    FUZZ_CHECK(image.dataSize() == data);
    if (!segments.empty())
        FUZZ_CHECK(image.span() == segments.back().endAddress() - segments.front().address);

    IntelHexFile file;
    FUZZ_CHECK(appendToBlocks(image, file));
    FUZZ_CHECK(file.getBlockCount() == segments.size());
    FUZZ_CHECK(sameImage(imageFromBlocks(file), image));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    MemoryImage windows;
    MemoryImage sorted;
    hexblocks::detail::MemoryText first(data, size);
    const fullread_t byWindows = hexblocks::detail::readFullFormat(first, windows, placement_t::WINDOWS);
    hexblocks::detail::MemoryText second(data, size);
    const fullread_t bySorting = hexblocks::detail::readFullFormat(second, sorted, placement_t::SORTING);
    FUZZ_CHECK(sameReport(byWindows, bySorting));
    FUZZ_CHECK(sameImage(windows, sorted));
    MemoryImage ascending;
    hexblocks::detail::MemoryText third(data, size);
    const fullread_t byAscending = hexblocks::detail::readFullFormat(third, ascending, placement_t::ASCENDING);
    FUZZ_CHECK(sameReport(byAscending, byWindows));
    FUZZ_CHECK(sameImage(ascending, windows));
    if (byWindows.status == fullread_t::status_t::OK)
        checkImage(windows);
    else
        FUZZ_CHECK(windows.empty() && !windows.hasStartAddress());

    // The public entry point reports the same.
    MemoryImage image;
    const read_result_t result = readMemory(image, data, size, readAs(file_format_t::INTEL_HEX));
    FUZZ_CHECK(result.ok() == (byWindows.status == fullread_t::status_t::OK));
    FUZZ_CHECK(result.line == byWindows.line);
    FUZZ_CHECK(result.ok() == result.reason.empty());
    return 0;
}
