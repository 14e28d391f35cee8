// The tool's text memory map: the strip drawn to scale, gaps, regions of
// neighbouring blocks, and the block and gap lines.
#include "memory_map.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hexblocks::cli;

namespace {

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::string::size_type start = 0;
    for (std::string::size_type nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        lines.push_back(text.substr(start, nl - start));
    return lines;
}

} // namespace

TEST(MemoryMap, NoBlocks)
{
    EXPECT_EQ(drawMemoryMap({}), "no data (0 blocks, 0 bytes)\n");
    EXPECT_EQ(drawMemoryMap({{0x100, 0, 0}}), "no data (1 block, 0 bytes)\n");
}

TEST(MemoryMap, OneBlockFillsTheStrip)
{
    const std::vector<std::string> lines = linesOf(drawMemoryMap({{0x08000000, 100, 0}}));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "0x08000000" + std::string(44, ' ') + "0x08000063");
    EXPECT_EQ(lines[1], std::string(64, 'A'));
    EXPECT_EQ(lines[2], "");
    EXPECT_EQ(lines[3], "  A  0x08000000-0x08000063       100 B  block 0");
}

TEST(MemoryMap, BlocksAndGapsToScale)
{
    // 16 KiB data, 16 KiB gap, 32 KiB data: 16, 16 and 32 columns of 64.
    const std::string map = drawMemoryMap({{0x4000 * 2, 0x8000, 1}, {0, 0x4000, 0}});
    const std::vector<std::string> lines = linesOf(map);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[1], std::string(16, 'A') + std::string(16, '.') + std::string(32, 'B'));
    EXPECT_EQ(lines[3], "  A  0x00000000-0x00003FFF      16 KiB  block 0");
    EXPECT_EQ(lines[4], "     0x00004000-0x00007FFF      16 KiB  gap");
    EXPECT_EQ(lines[5], "  B  0x00008000-0x0000FFFF      32 KiB  block 1");
}

TEST(MemoryMap, HugeGapIsCutAndSmallBlocksStayVisible)
{
    const std::string map =
        drawMemoryMap({{0x08000000, 0x1000, 0}, {0x08004000, 0x4000, 1}, {0x18004000, 4, 2}});
    const std::vector<std::string> lines = linesOf(map);
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines[1].size(), 64u);
    EXPECT_NE(lines[1].find("=//=C"), std::string::npos) << lines[1];
    EXPECT_EQ(lines[1][0], 'A');
    EXPECT_NE(lines[1].find('B'), std::string::npos);
    EXPECT_EQ(lines[6], "     0x08008000-0x18003FFF   256.0 MiB  gap (not to scale)");
    EXPECT_EQ(lines[7], "  C  0x18004000-0x18004003         4 B  block 2");
}

TEST(MemoryMap, ManyBlocksAreGroupedAtTheLargestGaps)
{
    std::vector<map_block_t> blocks;
    for (size_t i = 0; i < 3000; ++i)
        blocks.push_back({0x100000 + i * 32, 16, i}); // 16-byte gaps
    blocks.push_back({0x200000, 8, 3000});            // far away
    const std::vector<std::string> lines = linesOf(drawMemoryMap(blocks));
    // Header, strip, blank, then 16 regions with 15 gaps between them.
    ASSERT_EQ(lines.size(), 3u + 31u);
    EXPECT_EQ(lines[1].size(), 64u);
    EXPECT_EQ(lines.back(), "  P  0x00200000-0x00200007         8 B  block 3000");
    // The equal small gaps are split evenly: 15 regions of 200 blocks.
    EXPECT_EQ(lines[3], "  A  0x00100000-0x001018EF     6.2 KiB  blocks 0-199 (200 blocks, 3.1 KiB of data)");
    EXPECT_EQ(lines[4], "     0x001018F0-0x001018FF        16 B  gap");
    EXPECT_EQ(lines[31], "  O  0x00115E00-0x001176EF     6.2 KiB  blocks 2800-2999 (200 blocks, 3.1 KiB of data)");
}

TEST(MemoryMap, RegionLimitIsRespected)
{
    std::vector<map_block_t> blocks;
    for (size_t i = 0; i < 200; ++i)
        blocks.push_back({i * 1000 + (i % 7) * 10, 100, i});
    map_options_t options;
    options.maxRegions = 5;
    const std::string strip = linesOf(drawMemoryMap(blocks, options))[1];
    EXPECT_NE(strip.find('E'), std::string::npos);
    EXPECT_EQ(strip.find('F'), std::string::npos);
}

TEST(MemoryMap, TouchingAndOverlappingBlocksFormOneRegion)
{
    const std::vector<std::string> lines = linesOf(drawMemoryMap({{0, 16, 0}, {16, 16, 1}, {8, 16, 2}}));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[3], "  A  0x00000000-0x0000001F        32 B  blocks 0-2 (3 blocks, 48 B of data)");
}

TEST(MemoryMap, WidthOption)
{
    map_options_t options;
    options.width = 20;
    EXPECT_EQ(linesOf(drawMemoryMap({{0, 10, 0}, {30, 10, 1}}, options))[1], "AAAAA..........BBBBB");
}
