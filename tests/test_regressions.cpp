// Every seed of the fuzz corpus and every kept regression input is loaded in
// both modes: only the documented exceptions may escape, the blocks keep
// their invariants, and the fast and exact readers agree.
#include "intelhex.h"
#include "support/capture.h"
#include "support/test_access.h"

#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

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

void checkFile(const std::string& path)
{
    SCOPED_TRACE(path);
    for (bool oneBlock : {false, true}) {
        const Loaded viaLoad = loadWith([&](IntelHexFile& i) { return i.load(path.c_str(), oneBlock); });
        const Loaded viaRecords =
            loadWith([&](IntelHexFile& i) { return IntelHexTestAccess::loadRecords(i, path, oneBlock); });
        EXPECT_EQ(viaLoad.result, viaRecords.result);
        EXPECT_EQ(viaLoad.starts, viaRecords.starts);
        EXPECT_EQ(viaLoad.bytes, viaRecords.bytes);
        EXPECT_EQ(viaLoad.io.out, viaRecords.io.out);
        EXPECT_EQ(viaLoad.io.err, viaRecords.io.err);
        if (oneBlock) {
            EXPECT_LE(viaLoad.starts.size(), 1u);
        }
    }
}

} // namespace

TEST(Regressions, FuzzSeedsLoadSafely)
{
    const std::vector<std::string> files = hexFilesIn(INTELHEX_FUZZ_SEEDS_DIR);
    ASSERT_GE(files.size(), 20u);
    for (const std::string& file : files)
        checkFile(file);
}

TEST(Regressions, KeptInputsLoadSafely)
{
    const std::vector<std::string> files = hexFilesIn(std::string(INTELHEX_TEST_DATA_DIR) + "/regressions");
    ASSERT_FALSE(files.empty());
    for (const std::string& file : files)
        checkFile(file);
}
