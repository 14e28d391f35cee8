// load(), the strict reader, on arbitrary bytes in memory, in both modes.
// std::out_of_range and std::bad_alloc are outcomes the library documents;
// anything else that escapes, or a sanitizer report, is a bug. The blocks of
// a load that succeeds ascend and fit a 16-bit range and a record; a failed
// load leaves no blocks; and loading the same text again appends the same
// blocks.
#include "fuzz_common.h"
#include "intelhex.h"
#include "support/test_access.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>

namespace {

uint64_t fullStart(const IntelHexFileBlock& block)
{
    return static_cast<uint64_t>(block.getLinearBase()) << 16 | block.getStartAddress();
}

void checkBlocks(const IntelHexFile& image, bool oneBlock)
{
    if (oneBlock)
        FUZZ_CHECK(image.getBlockCount() <= 1);
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& block = image[i];
        FUZZ_CHECK(block.getSize() == IntelHexTestAccess::bufferLength(block));
        // A block never holds more than a 16-bit address range and a record.
        FUZZ_CHECK(block.getSize() <= 0xFFFF + 0xFF);
        // Strictly ascending by linear base and start address. (Blocks may
        // overlap: overlapping records end a run and start another.)
        if (i > 0)
            FUZZ_CHECK(fullStart(image[i - 1]) < fullStart(block));
    }
}

void loadTwice(const std::string& text, bool oneBlock)
{
    IntelHexFile image;
    bool first = false;
    try {
        first = IntelHexTestAccess::loadText(image, text, oneBlock);
    } catch (const std::out_of_range&) {
        return;
    } catch (const std::bad_alloc&) {
        return;
    }
    if (!first) {
        FUZZ_CHECK(image.getBlockCount() == 0);
        FUZZ_CHECK(image.getErrorLine() > 0 || !image.getErrorReason().empty());
        return;
    }
    FUZZ_CHECK(image.getErrorLine() == 0 && image.getErrorReason().empty());
    checkBlocks(image, oneBlock);
    const size_t count = image.getBlockCount();
    FUZZ_CHECK(IntelHexTestAccess::loadText(image, text, oneBlock));
    FUZZ_CHECK(image.getBlockCount() == 2 * count);
    for (size_t i = 0; i < count; ++i) {
        const IntelHexFileBlock& a = image[i];
        const IntelHexFileBlock& b = image[count + i];
        FUZZ_CHECK(fullStart(a) == fullStart(b) && a.getSize() == b.getSize());
        FUZZ_CHECK(a.getSize() == 0 || std::equal(a.getBuffer(), a.getBuffer() + a.getSize(), b.getBuffer()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    loadTwice(text, false);
    loadTwice(text, true);
    return 0;
}
