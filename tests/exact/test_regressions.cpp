// Every seed of the fuzz corpus and every kept regression input is loaded in
// both modes: only the documented exceptions may escape, the blocks keep
// their invariants, and the fast and exact readers agree; and the full-format
// reader places records the same way with windows and by sorting.
#include "full_format_reader.h"
#include "intelhex.h"
#include "support/capture.h"
#include "support/test_access.h"

#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

std::vector<std::string> hexFilesIn(const std::string& dir)
{
    std::vector<std::string> files;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            const std::string name = e->d_name;
            if (name.size() > 4 && name.compare(name.size() - 4, 4, ".hex") == 0)
                files.push_back(dir + "/" + name);
        }
        closedir(d);
    }
    std::sort(files.begin(), files.end());
    return files;
}

struct Loaded {
    std::string result;
    std::vector<uint64_t> starts;
    std::vector<std::vector<uint8_t>> bytes;
    CapturedOutput io;
};

template <typename Load> Loaded loadWith(const Load& load)
{
    Loaded l;
    IntelHexFile image;
    try {
        captureOutputKeeping([&] { l.result = load(image) ? "true" : "false"; }, &l.io);
    } catch (const std::out_of_range&) {
        l.result = "out_of_range";
    } catch (const std::bad_alloc&) {
        l.result = "bad_alloc";
    }
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& b = image[i];
        l.starts.push_back(static_cast<uint64_t>(b.getLinearBase()) << 16 | b.getStartAddress());
        l.bytes.emplace_back(b.getBuffer(), b.getBuffer() + b.getSize());
        EXPECT_EQ(b.getSize(), IntelHexTestAccess::bufferLength(b));
        EXPECT_LE(b.getSize(), 0xFFFFu + 0xFFu);
    }
    EXPECT_TRUE(std::is_sorted(l.starts.begin(), l.starts.end()));
    EXPECT_TRUE(std::adjacent_find(l.starts.begin(), l.starts.end()) == l.starts.end());
    return l;
}

void checkFullFormat(const std::string& path)
{
    using hexblocks::detail::fullread_t;
    using hexblocks::detail::placement_t;
    std::ifstream file(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    MemoryImage images[2];
    fullread_t reads[2];
    for (int i = 0; i < 2; ++i) {
        hexblocks::detail::MemoryText source(text.data(), text.size());
        reads[i] = hexblocks::detail::readFullFormat(source, images[i], i == 0 ? placement_t::WINDOWS : placement_t::SORTING);
    }
    EXPECT_EQ(reads[0].status, reads[1].status);
    EXPECT_EQ(reads[0].line, reads[1].line);
    EXPECT_EQ(reads[0].reason, reads[1].reason);
    EXPECT_EQ(reads[0].repeatedBytes, reads[1].repeatedBytes);
    EXPECT_EQ(reads[0].firstRepeatLine, reads[1].firstRepeatLine);
    EXPECT_EQ(reads[0].ignoredStartLines, reads[1].ignoredStartLines);
    ASSERT_EQ(images[0].segments().size(), images[1].segments().size());
    for (size_t i = 0; i < images[0].segments().size(); ++i) {
        EXPECT_EQ(images[0].segments()[i].address, images[1].segments()[i].address);
        EXPECT_EQ(images[0].segments()[i].bytes, images[1].segments()[i].bytes);
    }
}

void checkFile(const std::string& path)
{
    SCOPED_TRACE(path);
    checkFullFormat(path);
    for (bool oneBlock : {false, true}) {
        const Loaded viaLoad = loadWith([&](IntelHexFile& i) { return i.load(path.c_str(), oneBlock); });
        const Loaded viaExactReader =
            loadWith([&](IntelHexFile& i) { return IntelHexTestAccess::loadExact(i, path, oneBlock); });
        EXPECT_EQ(viaLoad.result, viaExactReader.result);
        EXPECT_EQ(viaLoad.starts, viaExactReader.starts);
        EXPECT_EQ(viaLoad.bytes, viaExactReader.bytes);
        EXPECT_EQ(viaLoad.io.out, viaExactReader.io.out);
        EXPECT_EQ(viaLoad.io.err, viaExactReader.io.err);
        if (oneBlock) {
            EXPECT_LE(viaLoad.starts.size(), 1u);
        }
    }
}

} // namespace

TEST(Regressions, FuzzSeedsLoadSafely)
{
    const std::vector<std::string> files = hexFilesIn(HEXBLOCKS_FUZZ_SEEDS_DIR);
    ASSERT_GE(files.size(), 20u);
    for (const std::string& file : files)
        checkFile(file);
}

TEST(Regressions, KeptInputsLoadSafely)
{
    const std::vector<std::string> files = hexFilesIn(std::string(HEXBLOCKS_TEST_DATA_DIR) + "/regressions");
    ASSERT_FALSE(files.empty());
    for (const std::string& file : files)
        checkFile(file);
}
