// load() against the exact reader on the same bytes, in both modes: load()
// takes most files with its fast reader and hands the rest to the exact
// reader, and must do exactly what the exact reader alone does. Any
// difference in the result, the blocks, the exception, the error or the
// text printed on either stream is a finding.
#include "fuzz_common.h"
#include "intelhex.h"
#include "support/test_access.h"

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

uint64_t fullStart(const IntelHexFileBlock& block)
{
    return static_cast<uint64_t>(block.getLinearBase()) << 16 | block.getStartAddress();
}

// What a load gave.
struct Outcome {
    int result = 0; // 1 true, 0 false, 2 std::out_of_range, 3 std::bad_alloc
    std::vector<uint64_t> starts;
    std::vector<std::vector<uint8_t>> bytes;
    size_t errorLine = 0;
    std::string errorReason;
    std::string printed;
    bool operator==(const Outcome& o) const
    {
        return result == o.result && starts == o.starts && bytes == o.bytes && errorLine == o.errorLine &&
               errorReason == o.errorReason && printed == o.printed;
    }
};

template <typename Load> Outcome outcomeOf(Load load)
{
    Outcome o;
    IntelHexFile image;
    {
        CapturedStreams streams;
        try {
            o.result = load(image) ? 1 : 0;
        } catch (const std::out_of_range&) {
            o.result = 2;
        } catch (const std::bad_alloc&) {
            o.result = 3;
        }
        o.printed = streams.text();
    }
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        o.starts.push_back(fullStart(image[i]));
        o.bytes.emplace_back(image[i].getBuffer(), image[i].getBuffer() + image[i].getSize());
    }
    o.errorLine = image.getErrorLine();
    o.errorReason = image.getErrorReason();
    return o;
}

void sameAsExactReader(const std::string& text, bool oneBlock)
{
    const Outcome viaLoad =
        outcomeOf([&](IntelHexFile& image) { return IntelHexTestAccess::loadText(image, text, oneBlock); });
    const Outcome viaExact =
        outcomeOf([&](IntelHexFile& image) { return IntelHexTestAccess::loadExactText(image, text, oneBlock); });
    FUZZ_CHECK(viaLoad == viaExact);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    sameAsExactReader(text, false);
    sameAsExactReader(text, true);
    return 0;
}
