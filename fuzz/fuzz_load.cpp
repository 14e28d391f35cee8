// Loads arbitrary bytes as a HEX file in both modes, with load() and with the
// full-format reader. std::out_of_range and std::bad_alloc are outcomes the
// library documents; anything else that escapes, or a sanitizer report, is a
// bug. For inputs that load, checks the invariants of the blocks; and load(),
// whose fast reader takes files in any order, must give what the exact
// reader gives.
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

void checkBlocks(const IntelHexFile& image, bool oneBlock)
{
    if (oneBlock)
        FUZZ_CHECK(image.getBlockCount() <= 1);
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& block = image[i];
        FUZZ_CHECK(block.getSize() == IntelHexTestAccess::bufferLength(block));
        // A block never holds more than a 16-bit address range and a record.
        FUZZ_CHECK(block.getSize() <= 0xFFFF + 0xFF);
        if (i > 0) {
            // Strictly ascending by linear base and start address. (Blocks
            // may overlap: overlapping records end a run and start another.)
            FUZZ_CHECK(fullStart(image[i - 1]) < fullStart(block));
        }
    }
}

// Loads the file twice into one container: the second load appends the same
// blocks again.
void loadTwice(const char* path, bool oneBlock)
{
    IntelHexFile image;
    bool first = false;
    try {
        first = image.load(path, oneBlock);
    } catch (const std::out_of_range&) {
        return;
    } catch (const std::bad_alloc&) {
        return;
    }
    if (!first) {
        FUZZ_CHECK(image.getBlockCount() == 0);
        return;
    }
    checkBlocks(image, oneBlock);
    const size_t count = image.getBlockCount();
    FUZZ_CHECK(image.load(path, oneBlock)); // the same bytes load again
    FUZZ_CHECK(image.getBlockCount() == 2 * count);
    for (size_t i = 0; i < count; ++i) {
        const IntelHexFileBlock& a = image[i];
        const IntelHexFileBlock& b = image[count + i];
        FUZZ_CHECK(fullStart(a) == fullStart(b) && a.getSize() == b.getSize());
        FUZZ_CHECK(a.getSize() == 0 || std::equal(a.getBuffer(), a.getBuffer() + a.getSize(), b.getBuffer()));
    }
}

// What a load gave: the result or the exception, the blocks, and where it failed.
struct Outcome {
    int result = 0; // 1 true, 0 false, 2 std::out_of_range, 3 std::bad_alloc
    std::vector<uint64_t> starts;
    std::vector<std::vector<uint8_t>> bytes;
    size_t errorLine = 0;
    std::string errorReason;
    bool operator==(const Outcome& o) const
    {
        return result == o.result && starts == o.starts && bytes == o.bytes && errorLine == o.errorLine &&
               errorReason == o.errorReason;
    }
};

template <typename Load> Outcome outcomeOf(Load load)
{
    Outcome o;
    IntelHexFile image;
    try {
        o.result = load(image) ? 1 : 0;
    } catch (const std::out_of_range&) {
        o.result = 2;
    } catch (const std::bad_alloc&) {
        o.result = 3;
    }
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        o.starts.push_back(fullStart(image[i]));
        o.bytes.emplace_back(image[i].getBuffer(), image[i].getBuffer() + image[i].getSize());
    }
    o.errorLine = image.getErrorLine();
    o.errorReason = image.getErrorReason();
    return o;
}

void sameAsExactReader(const char* path, bool oneBlock)
{
    const Outcome viaLoad = outcomeOf([&](IntelHexFile& image) { return image.load(path, oneBlock); });
    const Outcome viaExact =
        outcomeOf([&](IntelHexFile& image) { return IntelHexTestAccess::loadExact(image, path, oneBlock); });
    FUZZ_CHECK(viaLoad == viaExact);
}

// The full-format reader: blocks never overlap, ascend by full
// address, and a one-block image stays within the limit.
void loadFullFormat(const char* path, bool oneBlock)
{
    IntelHexFile image;
    IntelHexFile::fulloptions_t options;
    options.oneBlock = oneBlock;
    options.maxImageSize = 4u << 20;
    bool loaded = false;
    try {
        loaded = image.loadFullFormat(path, options);
    } catch (const std::bad_alloc&) {
        FUZZ_CHECK(false); // no allocation may fail for a small input
    }
    if (!loaded) {
        FUZZ_CHECK(image.getBlockCount() == 0 && !image.hasStartAddress());
        FUZZ_CHECK(!image.getErrorReason().empty());
        return;
    }
    FUZZ_CHECK(image.getErrorLine() == 0 && image.getErrorReason().empty());
    if (oneBlock)
        FUZZ_CHECK(image.getBlockCount() <= 1);
    uint64_t previousEnd = 0;
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& block = image[i];
        FUZZ_CHECK(block.getSize() == IntelHexTestAccess::bufferLength(block));
        FUZZ_CHECK(block.getSize() > 0 && block.getSize() <= options.maxImageSize);
        FUZZ_CHECK(i == 0 || fullStart(block) > previousEnd); // a gap between blocks
        previousEnd = fullStart(block) + block.getSize();
        FUZZ_CHECK(previousEnd <= 0x100000000ull);
    }
    if (image.hasStartAddress())
        FUZZ_CHECK(image.getStartAddressType() == 3 || image.getStartAddressType() == 5);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    silenceDiagnostics();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const MemoryFile file(data, size);
    loadTwice(file.path(), false);
    loadTwice(file.path(), true);
    sameAsExactReader(file.path(), false);
    sameAsExactReader(file.path(), true);
    loadFullFormat(file.path(), false);
    loadFullFormat(file.path(), true);
    return 0;
}
