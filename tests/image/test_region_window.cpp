// The dense window over one address region: placing records, the runs of
// data, and record starts kept as progressions.
#include "region_window.h"
#include "support/hex_text.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

namespace hexblocks::detail {

// Found by argument-dependent lookup, so they live with run_t.
bool operator==(const run_t& a, const run_t& b)
{
    return a.start == b.start && a.length == b.length;
}

std::ostream& operator<<(std::ostream& os, const run_t& r)
{
    return os << "{" << r.start << ", " << r.length << "}";
}

} // namespace hexblocks::detail

namespace {

using namespace hexblocks::detail;

std::vector<uint32_t> expand(const std::vector<progression_t>& progressions)
{
    std::vector<uint32_t> positions;
    for (const progression_t& p : progressions)
        for (uint32_t i = 0; i < p.count; ++i)
            positions.push_back(p.first + i * p.stride);
    return positions;
}

} // namespace

TEST(RegionWindow, PlacingRecords)
{
    RegionWindow window(0x10000);
    EXPECT_TRUE(window.empty());
    EXPECT_EQ(window.placeRecord(0x10, countingBytes(16).data(), 16), 0u);
    EXPECT_FALSE(window.empty());
    EXPECT_TRUE(window.isStart(0x10));
    EXPECT_FALSE(window.isStart(0x11));
    EXPECT_TRUE(window.holdsData(0x1F, 1));
    EXPECT_FALSE(window.holdsData(0x20, 100));
    // A second record at the same start places nothing.
    EXPECT_EQ(window.placeRecord(0x10, countingBytes(32, 0x80).data(), 32), RegionWindow::REPEATED_START);
    EXPECT_FALSE(window.holdsData(0x20, 16));
    // An overlapping record keeps the first values and counts the others.
    EXPECT_EQ(window.placeRecord(0x18, countingBytes(16, 0xA0).data(), 16), 8u);
    EXPECT_EQ(std::vector<uint8_t>(window.bytes() + 0x10, window.bytes() + 0x28),
              concat(countingBytes(16), countingBytes(8, 0xA8)));
    EXPECT_EQ(window.runs(), std::vector<run_t>({{0x10, 0x18}}));
    EXPECT_EQ(window.lastStartBefore(0x28), 0x18u);
    EXPECT_EQ(window.lastStartBefore(0x18), 0x10u);
    EXPECT_EQ(window.lastStartBefore(0x10), 0x10u); // none below
    // Records across words, at a word's edge, of 64 and of 255 bytes.
    EXPECT_EQ(window.placeRecord(0x3F, countingBytes(64).data(), 64), 0u);
    EXPECT_EQ(window.placeRecord(0x7F, countingBytes(64).data(), 64), 0u);
    EXPECT_EQ(window.placeRecord(0x200, countingBytes(255).data(), 255), 0u);
    EXPECT_EQ(window.runs(), std::vector<run_t>({{0x10, 0x18}, {0x3F, 0x80}, {0x200, 255}}));
}

TEST(RegionWindow, RunsReachTheLastPosition)
{
    // A window whose size is not a multiple of 64, as the fast reader's is.
    RegionWindow window(0x100FE);
    EXPECT_EQ(window.placeRecord(0xFFFF, countingBytes(255).data(), 255), 0u);
    EXPECT_EQ(window.placeRecord(0, countingBytes(1).data(), 1), 0u);
    EXPECT_EQ(window.runs(), std::vector<run_t>({{0, 1}, {0xFFFF, 255}}));
    EXPECT_EQ(window.lastStartBefore(0x100FE), 0xFFFFu);

    RegionWindow full(0x10000);
    for (uint32_t a = 0; a < 0x10000; a += 128)
        ASSERT_EQ(full.placeRecord(a, countingBytes(128).data(), 128), 0u);
    EXPECT_EQ(full.runs(), std::vector<run_t>({{0, 0x10000}}));
}

TEST(RegionWindow, ClearAndTakeBytes)
{
    RegionWindow window(0x10000);
    window.placeRecord(0x8000, countingBytes(4, 1).data(), 4);
    window.clear();
    EXPECT_TRUE(window.empty());
    EXPECT_TRUE(window.runs().empty());
    EXPECT_TRUE(window.starts().empty());
    EXPECT_FALSE(window.isStart(0x8000));
    EXPECT_FALSE(window.holdsData(0, 0x10000 - 1));

    window.placeRecord(0x20, countingBytes(4, 1).data(), 4);
    const PageBytes taken = window.takeBytes();
    EXPECT_EQ(taken.size(), 0x10000u);
    EXPECT_EQ(std::vector<uint8_t>(taken.data() + 0x20, taken.data() + 0x24), countingBytes(4, 1));
    EXPECT_TRUE(window.empty());
    EXPECT_EQ(window.placeRecord(0x20, countingBytes(4, 9).data(), 4), 0u);
    EXPECT_EQ(taken.data()[0x20], 1); // the taken bytes are no longer the window's
}

TEST(RegionWindow, StartsAsProgressions)
{
    RegionWindow window(0x10000);
    // Records of 16 bytes, one after another: one progression.
    for (uint32_t a = 0x100; a < 0x9000; a += 16)
        window.markStart(a);
    std::vector<progression_t> starts = window.starts();
    ASSERT_EQ(starts.size(), 1u);
    EXPECT_EQ(starts[0].first, 0x100u);
    EXPECT_EQ(starts[0].stride, 16u);
    EXPECT_EQ(starts[0].count, (0x9000u - 0x100u) / 16);
    EXPECT_EQ(starts[0].last(), 0x8FF0u);

    // Any set of starts comes back as it went in.
    std::mt19937 rng(3);
    for (int round = 0; round < 200; ++round) {
        window.clear();
        std::set<uint32_t> positions;
        const uint32_t stride = std::uniform_int_distribution<uint32_t>(1, 130)(rng);
        uint32_t a = std::uniform_int_distribution<uint32_t>(0, 300)(rng);
        for (int i = std::uniform_int_distribution<int>(0, 2000)(rng); i > 0 && a < 0x10000; --i) {
            positions.insert(a);
            a += std::uniform_int_distribution<int>(0, 9)(rng) == 0 ? std::uniform_int_distribution<uint32_t>(1, 200)(rng)
                                                                     : stride;
        }
        for (uint32_t p : positions)
            window.markStart(p);
        starts = window.starts();
        EXPECT_EQ(expand(starts), std::vector<uint32_t>(positions.begin(), positions.end())) << "round " << round;
        RegionWindow other(0x10000);
        other.markStarts(starts);
        EXPECT_EQ(expand(other.starts()), expand(starts));
    }
}

TEST(RegionWindow, RecordsOneBeforeAnotherAndThenOneAfterAnother)
{
    // Records written backwards are placed one before another, their data
    // bits set later; records that then run into them from below still find
    // them, even when the first record of an empty window ends at its top.
    RegionWindow window(0x10000);
    EXPECT_EQ(window.placeRecord(0xFFF0, countingBytes(16, 0x80).data(), 16), 0u);
    EXPECT_EQ(window.placeRecord(0xFFE0, countingBytes(16, 0x60).data(), 16), 0u);
    EXPECT_EQ(window.placeRecord(0x0000, countingBytes(16).data(), 16), 0u);
    EXPECT_EQ(window.placeRecord(0x0010, countingBytes(16, 0x10).data(), 16), 0u);
    EXPECT_EQ(window.placeRecord(0xFFD8, countingBytes(16, 0x40).data(), 16), 8u);
    EXPECT_EQ(window.placeRecord(0xFFE0, countingBytes(4, 0x20).data(), 4), RegionWindow::REPEATED_START);
    EXPECT_EQ(window.runs(), std::vector<run_t>({{0x0000, 0x20}, {0xFFD8, 0x28}}));
    EXPECT_EQ(std::vector<uint8_t>(window.bytes() + 0xFFD8, window.bytes() + 0x10000),
              concat(concat(countingBytes(8, 0x40), countingBytes(16, 0x60)), countingBytes(16, 0x80)));
    EXPECT_EQ(expand(window.starts()), std::vector<uint32_t>({0x0000, 0x0010, 0xFFD8, 0xFFE0, 0xFFF0}));

    // The first record of an empty window, at its top, then records one
    // after another from its bottom up into it.
    window.clear();
    EXPECT_EQ(window.placeRecord(0xFFF0, countingBytes(16, 0x80).data(), 16), 0u);
    for (size_t position = 0; position < 0xFFE0; position += 32)
        ASSERT_EQ(window.placeRecord(position, countingBytes(32).data(), 32), 0u) << position;
    EXPECT_EQ(window.placeRecord(0xFFE0, countingBytes(24, 0x40).data(), 24), 8u);
    EXPECT_EQ(std::vector<uint8_t>(window.bytes() + 0xFFF0, window.bytes() + 0x10000), countingBytes(16, 0x80));
    EXPECT_EQ(window.runs(), std::vector<run_t>({{0x0000, 0x10000}}));
}
