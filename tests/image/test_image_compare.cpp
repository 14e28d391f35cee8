// Comparing images: verify against read-back dumps in memory, in files and
// through pipes (matching, differing in chosen bytes, too short, placed
// past the data), diff of equal, disjoint and one-byte-different images
// with its joining rule and start addresses, and both against a
// byte-by-byte model on generated images.
#include "formats.h"
#include "memory_image.h"

#include "support/image_view.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <optional>

#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using namespace hexblocks;

namespace {

using kind_t = difference_t::kind_t;

std::string writeFile(const TempDir& dir, const std::string& name, const std::vector<uint8_t>& bytes)
{
    return dir.write(name, std::string(bytes.begin(), bytes.end()));
}

MemoryImage sampleImage()
{
    // 0x1000-0x10FF and 0x1200-0x120F, bytes counting up.
    std::vector<uint8_t> a(0x100), b(0x10);
    for (size_t i = 0; i < a.size(); ++i)
        a[i] = static_cast<uint8_t>(i);
    for (size_t i = 0; i < b.size(); ++i)
        b[i] = static_cast<uint8_t>(0xA0 + i);
    return imageOf({{0x1000, a}, {0x1200, b}});
}

// The dump of image from address, size bytes, 0xFF where it has no data.
std::vector<uint8_t> dumpOf(const MemoryImage& image, uint32_t address, size_t size)
{
    return image.copyRange(address, size, 0xFF);
}

using mismatchview_t = std::tuple<uint32_t, unsigned, unsigned>;

std::vector<mismatchview_t> firstOf(const verify_result_t& result)
{
    std::vector<mismatchview_t> list;
    for (const mismatch_t& m : result.first)
        list.emplace_back(m.address, m.expected, m.found);
    return list;
}

TEST(Verify, MatchingDumpPasses)
{
    const MemoryImage image = sampleImage();
    const std::vector<uint8_t> dump = dumpOf(image, 0x1000, 0x300);
    const verify_result_t result = image.verify(dump.data(), dump.size(), 0x1000);
    EXPECT_TRUE(result.ok());
    EXPECT_TRUE(result.reason.empty());
    EXPECT_EQ(result.compared, 0x110u);
    EXPECT_EQ(result.mismatches, 0u);
    EXPECT_EQ(result.notCovered, 0u);
    EXPECT_TRUE(result.first.empty());

    // A larger dump starting lower is just as good: only data bytes count.
    const std::vector<uint8_t> wide = dumpOf(image, 0, 0x10000);
    EXPECT_TRUE(image.verify(wide.data(), wide.size(), 0).ok());
}

TEST(Verify, ListsTheFirstMismatchesInAddressOrder)
{
    const MemoryImage image = sampleImage();
    std::vector<uint8_t> dump = dumpOf(image, 0x1000, 0x210);
    dump[0x05] = 0x00;  // expected 0x05
    dump[0x100] = 0x12; // a gap byte: not compared
    dump[0x20F] = 0xFF; // expected 0xAF
    dump[0x06] = 0x66;
    verify_result_t result = image.verify(dump.data(), dump.size(), 0x1000);
    EXPECT_FALSE(result.ok());
    EXPECT_EQ(result.compared, 0x110u);
    EXPECT_EQ(result.mismatches, 3u);
    EXPECT_EQ(result.notCovered, 0u);
    EXPECT_EQ(firstOf(result),
              (std::vector<mismatchview_t>{{0x1005, 0x05, 0x00}, {0x1006, 0x06, 0x66}, {0x120F, 0xAF, 0xFF}}));

    // At most maxListed are listed; all are counted.
    result = image.verify(dump.data(), dump.size(), 0x1000, 2);
    EXPECT_EQ(result.mismatches, 3u);
    EXPECT_EQ(firstOf(result), (std::vector<mismatchview_t>{{0x1005, 0x05, 0x00}, {0x1006, 0x06, 0x66}}));

    std::vector<uint8_t> inverted = dumpOf(image, 0x1000, 0x210);
    for (uint8_t& b : inverted)
        b = static_cast<uint8_t>(~b);
    result = image.verify(inverted.data(), inverted.size(), 0x1000);
    EXPECT_EQ(result.mismatches, 0x110u);
    EXPECT_EQ(result.first.size(), 10u) << "ten by default";
    EXPECT_EQ(std::get<0>(firstOf(result).back()), 0x1009u);
}

TEST(Verify, DataOutsideTheDumpIsNotCovered)
{
    const MemoryImage image = sampleImage();
    // Too short: it ends inside the first segment.
    std::vector<uint8_t> dump = dumpOf(image, 0x1000, 0x80);
    verify_result_t result = image.verify(dump.data(), dump.size(), 0x1000);
    EXPECT_FALSE(result.ok());
    EXPECT_EQ(result.compared, 0x80u);
    EXPECT_EQ(result.mismatches, 0u);
    EXPECT_EQ(result.notCovered, 0x90u);
    EXPECT_EQ(result.firstNotCovered, 0x1080u);

    // Starting too high: the first bytes are not covered.
    dump = dumpOf(image, 0x1010, 0x1000);
    result = image.verify(dump.data(), dump.size(), 0x1010);
    EXPECT_EQ(result.notCovered, 0x10u);
    EXPECT_EQ(result.firstNotCovered, 0x1000u);
    EXPECT_EQ(result.compared, 0x100u);

    // Empty, and far away.
    result = image.verify(nullptr, 0, 0x1000);
    EXPECT_EQ(result.notCovered, 0x110u);
    EXPECT_EQ(result.compared, 0u);
    EXPECT_FALSE(result.ok());
    result = image.verify(dump.data(), dump.size(), 0x80000000);
    EXPECT_EQ(result.notCovered, 0x110u);
    EXPECT_EQ(result.firstNotCovered, 0x1000u);

    // An empty image has nothing to check.
    EXPECT_TRUE(MemoryImage().verify(nullptr, 0, 0).ok());
}

TEST(Verify, ReachesTheTopOfTheAddressSpace)
{
    const std::vector<uint8_t> tail = {0x01, 0x02, 0x03, 0x04};
    const MemoryImage image = imageOf({{0xFFFFFFFC, tail}});
    // The dump runs past 2^32: what lies beyond is ignored.
    std::vector<uint8_t> dump = {0xEE, 0xEE, 0x01, 0x02, 0x03, 0x05, 0x99, 0x99};
    verify_result_t result = image.verify(dump.data(), dump.size(), 0xFFFFFFFA);
    EXPECT_EQ(result.compared, 4u);
    EXPECT_EQ(firstOf(result), (std::vector<mismatchview_t>{{0xFFFFFFFF, 0x04, 0x05}}));
    EXPECT_EQ(result.notCovered, 0u);

    result = image.verify(dump.data(), 3, 0xFFFFFFFA);
    EXPECT_EQ(result.compared, 1u);
    EXPECT_EQ(result.notCovered, 3u);
    EXPECT_EQ(result.firstNotCovered, 0xFFFFFFFDu);

    TempDir dir;
    dump[5] = 0x04;
    const std::string path = writeFile(dir, "top.bin", dump);
    result = image.verifyFile(path.c_str(), 0xFFFFFFFA);
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(result.compared, 4u);
}

TEST(Verify, ReadsDumpFilesAndPipes)
{
    const MemoryImage image = sampleImage();
    std::vector<uint8_t> dump = dumpOf(image, 0x800, 0x1000);
    dump[0x800 + 0x20] ^= 0x01;
    TempDir dir;
    const std::string path = writeFile(dir, "dump.bin", dump);
    verify_result_t result = image.verifyFile(path.c_str(), 0x800);
    EXPECT_EQ(result.status, status_t::MISMATCH);
    EXPECT_EQ(result.reason, "1 of 272 bytes differ");
    EXPECT_EQ(result.address, std::optional<uint32_t>(0x1020));
    EXPECT_EQ(result.compared, 0x110u);
    EXPECT_EQ(firstOf(result), (std::vector<mismatchview_t>{{0x1020, 0x20, 0x21}}));

    const std::string text(dump.begin(), dump.end());
    FifoFile fifo(dir, "dump.fifo", text);
    const verify_result_t piped = image.verifyFile(fifo.path().c_str(), 0x800);
    EXPECT_EQ(piped.status, status_t::MISMATCH);
    EXPECT_EQ(piped.reason, result.reason);
    EXPECT_EQ(piped.compared, result.compared);
    EXPECT_EQ(firstOf(piped), firstOf(result));

    // A short file: not covered, not an error.
    const std::string shortPath = writeFile(dir, "short.bin", std::vector<uint8_t>(dump.begin(), dump.begin() + 0x880));
    result = image.verifyFile(shortPath.c_str(), 0x800);
    EXPECT_EQ(result.status, status_t::MISMATCH);
    EXPECT_EQ(result.reason, "1 of 128 bytes differ; 144 bytes lie outside the dump, the first at 0x00001080");
    EXPECT_EQ(result.address, std::optional<uint32_t>(0x1020));
    EXPECT_EQ(result.notCovered, 0x90u);
    EXPECT_EQ(result.firstNotCovered, 0x1080u);

    result = image.verifyFile(dir.file("missing.bin").c_str(), 0);
    EXPECT_EQ(result.status, status_t::CANNOT_OPEN);
    EXPECT_EQ(result.reason, "cannot open the file: No such file or directory");
    result = image.verifyFile(dir.path().c_str(), 0);
    EXPECT_EQ(result.status, status_t::CANNOT_READ);
    EXPECT_EQ(result.reason, "cannot read the file: Is a directory");
}

TEST(Verify, SkipsTheFileBetweenSparseData)
{
    // Two bytes 256 MiB apart, checked in a sparse file of that size.
    const MemoryImage image = imageOf({{0x100, {0x42}}, {0x10000100, {0x43}}});
    TempDir dir;
    const std::string path = dir.file("sparse.bin");
    {
        std::ofstream out(path, std::ios::binary);
        out.seekp(0x100);
        out.put(0x42);
        out.seekp(0x10000100);
        out.put(0x44);
    }
    const verify_result_t result = image.verifyFile(path.c_str(), 0);
    EXPECT_EQ(result.compared, 2u);
    EXPECT_EQ(firstOf(result), (std::vector<mismatchview_t>{{0x10000100, 0x43, 0x44}}));
}

std::vector<std::tuple<kind_t, uint32_t, uint64_t, uint64_t>> rangesOf(const diff_result_t& result)
{
    std::vector<std::tuple<kind_t, uint32_t, uint64_t, uint64_t>> ranges;
    for (const difference_t& d : result.ranges)
        ranges.emplace_back(d.kind, d.start, d.end, d.bytes);
    return ranges;
}

TEST(Diff, EqualImagesHaveNoDifferences)
{
    const MemoryImage image = sampleImage();
    diff_result_t result = image.diff(image);
    EXPECT_TRUE(result.equal());
    EXPECT_TRUE(result.ranges.empty());
    EXPECT_FALSE(result.startDiffers);
    EXPECT_TRUE(MemoryImage().diff(MemoryImage()).equal());
}

TEST(Diff, DisjointDataIsOnlyInOneImage)
{
    const MemoryImage a = imageOf({{0x100, std::vector<uint8_t>(0x10, 1)}, {0x400, std::vector<uint8_t>(4, 2)}});
    const MemoryImage b = imageOf({{0x200, std::vector<uint8_t>(0x20, 1)}});
    const diff_result_t result = a.diff(b);
    EXPECT_FALSE(result.equal());
    EXPECT_EQ(rangesOf(result), (std::vector<std::tuple<kind_t, uint32_t, uint64_t, uint64_t>>{
                                    {kind_t::ONLY_IMAGE, 0x100, 0x110, 0x10},
                                    {kind_t::ONLY_OTHER, 0x200, 0x220, 0x20},
                                    {kind_t::ONLY_IMAGE, 0x400, 0x404, 4}}));
    EXPECT_EQ(rangesOf(b.diff(a)).size(), 3u);
    EXPECT_EQ(std::get<0>(rangesOf(b.diff(a))[0]), kind_t::ONLY_OTHER);
}

TEST(Diff, OneByteDiffers)
{
    const MemoryImage a = sampleImage();
    MemoryImage b = a;
    const uint8_t changed = 0x77;
    ASSERT_TRUE(b.write(0x1042, &changed, 1));
    const diff_result_t result = a.diff(b);
    EXPECT_EQ(rangesOf(result), (std::vector<std::tuple<kind_t, uint32_t, uint64_t, uint64_t>>{
                                    {kind_t::DIFFER, 0x1042, 0x1043, 1}}));
    EXPECT_FALSE(result.startDiffers);
}

TEST(Diff, JoinsDifferencesSeparatedByFewEqualBytes)
{
    const MemoryImage a = imageOf({{0, std::vector<uint8_t>(200, 0)}});
    // Differences at 10-11, 28 (16 equal bytes after 11), 45-46 (16 after
    // 28), 64 (17 after 46) and 199, the last byte.
    MemoryImage b = a;
    for (uint32_t at : {10u, 11u, 28u, 45u, 46u, 64u, 199u}) {
        const uint8_t one = 1;
        ASSERT_TRUE(b.write(at, &one, 1));
    }
    using row = std::tuple<kind_t, uint32_t, uint64_t, uint64_t>;
    EXPECT_EQ(rangesOf(a.diff(b)), (std::vector<row>{{kind_t::DIFFER, 10, 47, 5}, {kind_t::DIFFER, 64, 65, 1},
                                                     {kind_t::DIFFER, 199, 200, 1}}));
    diff_options_t exact;
    exact.join = 0;
    EXPECT_EQ(rangesOf(a.diff(b, exact)),
              (std::vector<row>{{kind_t::DIFFER, 10, 12, 2}, {kind_t::DIFFER, 28, 29, 1}, {kind_t::DIFFER, 45, 47, 2},
                                {kind_t::DIFFER, 64, 65, 1}, {kind_t::DIFFER, 199, 200, 1}}));
    diff_options_t wide;
    wide.join = 1000;
    EXPECT_EQ(rangesOf(a.diff(b, wide)), (std::vector<row>{{kind_t::DIFFER, 10, 200, 7}}));
}

TEST(Diff, RangesNeverCrossWhereOneImageHasNoData)
{
    // b lacks 0x10-0x1F; differences at 0x0E and 0x21 are two ranges around it.
    const MemoryImage a = imageOf({{0, std::vector<uint8_t>(0x40, 0)}});
    MemoryImage b = imageOf({{0, std::vector<uint8_t>(0x10, 0)}, {0x20, std::vector<uint8_t>(0x20, 0)}});
    const uint8_t one = 1;
    ASSERT_TRUE(b.write(0x0E, &one, 1));
    ASSERT_TRUE(b.write(0x21, &one, 1));
    using row = std::tuple<kind_t, uint32_t, uint64_t, uint64_t>;
    EXPECT_EQ(rangesOf(a.diff(b)), (std::vector<row>{{kind_t::DIFFER, 0x0E, 0x0F, 1},
                                                     {kind_t::ONLY_IMAGE, 0x10, 0x20, 0x10},
                                                     {kind_t::DIFFER, 0x21, 0x22, 1}}));
    // Both lack 0x10-0x1F: still two ranges.
    const MemoryImage c = imageOf({{0, std::vector<uint8_t>(0x10, 0)}, {0x20, std::vector<uint8_t>(0x20, 0)}});
    EXPECT_EQ(rangesOf(c.diff(b)),
              (std::vector<row>{{kind_t::DIFFER, 0x0E, 0x0F, 1}, {kind_t::DIFFER, 0x21, 0x22, 1}}));
}

TEST(Diff, ComparesStartAddressesByTheAddressTheyStandFor)
{
    MemoryImage a = sampleImage(), b = sampleImage();
    ASSERT_TRUE(a.setStartAddress({5, 0x1234}));
    diff_result_t result = a.diff(b);
    EXPECT_TRUE(result.startDiffers);
    EXPECT_TRUE(result.ranges.empty());
    EXPECT_FALSE(result.equal());
    EXPECT_TRUE(b.diff(a).startDiffers);

    ASSERT_TRUE(b.setStartAddress({3, 0x01230004})); // 0x0123 * 16 + 4 = 0x1234
    EXPECT_TRUE(a.diff(b).equal());
    ASSERT_TRUE(b.setStartAddress({5, 0x1235}));
    EXPECT_TRUE(a.diff(b).startDiffers);

    // Headers are not compared.
    ASSERT_TRUE(b.setStartAddress({5, 0x1234}));
    ASSERT_TRUE(b.setHeader("release 2"));
    EXPECT_TRUE(a.diff(b).equal());
}

TEST(Diff, ReachesTheTopOfTheAddressSpace)
{
    const MemoryImage a = imageOf({{0xFFFFFFF0, std::vector<uint8_t>(0x10, 5)}});
    const MemoryImage b = imageOf({{0xFFFFFFF8, std::vector<uint8_t>(7, 5)}, {0xFFFFFFFF, {6}}});
    using row = std::tuple<kind_t, uint32_t, uint64_t, uint64_t>;
    EXPECT_EQ(rangesOf(a.diff(b)), (std::vector<row>{{kind_t::ONLY_IMAGE, 0xFFFFFFF0, 0xFFFFFFF8, 8},
                                                     {kind_t::DIFFER, 0xFFFFFFFF, 0x100000000ull, 1}}));
}

TEST(Compare, VerifyAndDiffAgreeWithAModel)
{
    std::mt19937 random(14);
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const MemoryImage a = randomImage(random, false, true);
        const bytemap_t bytesA = bytesOf(a);
        // b: a with some bytes changed, some removed and some added.
        bytemap_t bytesB = bytesA;
        std::vector<uint32_t> addresses;
        for (const auto& byte : bytesA)
            addresses.push_back(byte.first);
        for (int i = 0; i < 20 && !addresses.empty(); ++i) {
            const uint32_t at = addresses[random() % addresses.size()];
            switch (random() % 3) {
            case 0: bytesB[at] = static_cast<uint8_t>(bytesB[at] + 1); break;
            case 1: bytesB.erase(at); break;
            default: bytesB[static_cast<uint32_t>(at + 1 + random() % 100)] = 0; break;
            }
        }
        MemoryImage b;
        for (const auto& byte : bytesB)
            ASSERT_TRUE(b.write(byte.first, &byte.second, 1));

        // Diff with join 0 against the model, address by address.
        diff_options_t exact;
        exact.join = 0;
        std::vector<std::tuple<kind_t, uint32_t, uint64_t, uint64_t>> model;
        auto add = [&model](kind_t kind, uint32_t address) {
            if (!model.empty() && std::get<0>(model.back()) == kind && std::get<2>(model.back()) == address) {
                ++std::get<2>(model.back());
                ++std::get<3>(model.back());
            } else {
                model.emplace_back(kind, address, static_cast<uint64_t>(address) + 1, 1);
            }
        };
        auto itA = bytesA.begin();
        auto itB = bytesB.begin();
        while (itA != bytesA.end() || itB != bytesB.end()) {
            if (itB == bytesB.end() || (itA != bytesA.end() && itA->first < itB->first)) {
                add(kind_t::ONLY_IMAGE, itA->first);
                ++itA;
            } else if (itA == bytesA.end() || itB->first < itA->first) {
                add(kind_t::ONLY_OTHER, itB->first);
                ++itB;
            } else {
                if (itA->second != itB->second)
                    add(kind_t::DIFFER, itA->first);
                ++itA, ++itB;
            }
        }
        EXPECT_EQ(rangesOf(a.diff(b, exact)), model);

        // Verify b against a dump of a over a random window.
        const uint32_t low = a.empty() ? 0 : a.lowestAddress();
        const uint32_t from = low - std::min<uint32_t>(low, static_cast<uint32_t>(random() % 64));
        const uint64_t room = std::min<uint64_t>(a.span() + 128, 0x100000000ull - from);
        const size_t size = static_cast<size_t>(room - random() % std::min<uint64_t>(64, room));
        const std::vector<uint8_t> dump = a.copyRange(from, size, 0xFF);
        const verify_result_t result = b.verify(dump.data(), dump.size(), from, 1000);
        uint64_t compared = 0, mismatches = 0, notCovered = 0;
        std::vector<mismatchview_t> first;
        for (const auto& byte : bytesB) {
            if (byte.first < from || byte.first - from >= size) {
                ++notCovered;
                continue;
            }
            ++compared;
            const uint8_t found = dump[byte.first - from];
            if (found != byte.second) {
                ++mismatches;
                first.emplace_back(byte.first, byte.second, found);
            }
        }
        EXPECT_EQ(result.compared, compared);
        EXPECT_EQ(result.mismatches, mismatches);
        EXPECT_EQ(result.notCovered, notCovered);
        EXPECT_EQ(firstOf(result), first);
        EXPECT_EQ(result.ok(), mismatches == 0 && notCovered == 0);
    }
}

} // namespace
