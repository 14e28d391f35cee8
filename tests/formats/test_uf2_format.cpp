// UF2: the blocks the writer makes, checked field by field with a decoder
// written here from the format's description; the reader's checks of every
// block, the blocks it skips, families selected and in conflict, and
// blocks that give bytes again; the family list.
#include "formats.h"
#include "memory_image.h"
#include "support/image_view.h"
#include "support/result_print.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

const uint32_t MAGIC_START_0 = 0x0A324655;
const uint32_t MAGIC_START_1 = 0x9E5D5157;
const uint32_t MAGIC_END = 0x0AB16F30;
const uint32_t RP2040 = 0xE48BFF56;
const uint32_t SAMD21 = 0x68ED2B88;

uint32_t word(const std::string& file, size_t at)
{
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | static_cast<uint8_t>(file[at + static_cast<size_t>(i)]);
    return value;
}

void putWord(std::string& file, size_t at, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        file[at + static_cast<size_t>(i)] = static_cast<char>(value >> (8 * i));
}

// A block as the format's description lays it out.
struct Block {
    uint32_t flags = 0;
    uint32_t address = 0;
    std::vector<uint8_t> payload;
    uint32_t number = 0;
    uint32_t count = 1;
    uint32_t family = 0;
};

std::string encode(const Block& b)
{
    std::string block(512, '\0');
    putWord(block, 0, MAGIC_START_0);
    putWord(block, 4, MAGIC_START_1);
    putWord(block, 8, b.flags);
    putWord(block, 12, b.address);
    putWord(block, 16, static_cast<uint32_t>(b.payload.size()));
    putWord(block, 20, b.number);
    putWord(block, 24, b.count);
    putWord(block, 28, b.family);
    std::memcpy(&block[32], b.payload.data(), std::min<size_t>(b.payload.size(), 476));
    putWord(block, 508, MAGIC_END);
    return block;
}

std::vector<Block> decode(const std::string& file)
{
    std::vector<Block> blocks;
    EXPECT_EQ(file.size() % 512, 0u);
    for (size_t at = 0; at + 512 <= file.size(); at += 512) {
        EXPECT_EQ(word(file, at), MAGIC_START_0);
        EXPECT_EQ(word(file, at + 4), MAGIC_START_1);
        EXPECT_EQ(word(file, at + 508), MAGIC_END);
        Block b;
        b.flags = word(file, at + 8);
        b.address = word(file, at + 12);
        const uint32_t size = word(file, at + 16);
        EXPECT_LE(size, 476u);
        b.payload.assign(file.begin() + static_cast<long>(at) + 32, file.begin() + static_cast<long>(at) + 32 + size);
        for (size_t i = 32 + size; i < 508; ++i)
            EXPECT_EQ(file[at + i], '\0') << "the payload is padded with zeros";
        b.number = word(file, at + 20);
        b.count = word(file, at + 24);
        b.family = word(file, at + 28);
        blocks.push_back(b);
    }
    return blocks;
}

std::string written(const MemoryImage& image, const write_options_t& options)
{
    std::ostringstream out;
    const result_t result = writeStream(image, out, options);
    EXPECT_TRUE(result) << result.reason;
    return out.str();
}

write_options_t uf2(std::optional<uint32_t> family = std::nullopt, uint8_t fill = 0xFF)
{
    write_options_t options;
    options.format = file_format_t::UF2;
    options.family = family;
    options.fill = fill;
    return options;
}

read_result_t readUf2(MemoryImage& image, const std::string& file, std::optional<uint32_t> family = std::nullopt)
{
    read_options_t options = readAs(file_format_t::UF2);
    options.family = family;
    return readMemory(image, file.data(), file.size(), options);
}

std::string failureOf(const std::string& file, std::optional<uint32_t> family = std::nullopt)
{
    MemoryImage image = imageOf({{7, {7}}});
    const read_result_t result = readUf2(image, file, family);
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{7, {7}}})) << "a failed read changed the image";
    EXPECT_EQ(result.line, 0u);
    return result ? "ok" : result.reason;
}

std::vector<uint8_t> bytes(size_t count, uint8_t first)
{
    std::vector<uint8_t> b(count);
    for (size_t i = 0; i < count; ++i)
        b[i] = static_cast<uint8_t>(first + i);
    return b;
}

} // namespace

TEST(Uf2Writer, PagesOf256BytesNumberedWithTheCountAndTheFamily)
{
    // 0x10000000-0x100002FF whole, then 3 bytes at 0x10001081.
    const MemoryImage image = imageOf({{0x10000000, bytes(0x300, 0)}, {0x10001081, {0xA1, 0xA2, 0xA3}}});
    const std::vector<Block> blocks = decode(written(image, uf2(RP2040, 0x5A)));
    ASSERT_EQ(blocks.size(), 4u);
    const uint32_t addresses[] = {0x10000000, 0x10000100, 0x10000200, 0x10001000};
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(blocks[i].flags, 0x00002000u) << "family ID present";
        EXPECT_EQ(blocks[i].family, RP2040);
        EXPECT_EQ(blocks[i].address, addresses[i]);
        EXPECT_EQ(blocks[i].payload.size(), 256u);
        EXPECT_EQ(blocks[i].number, i);
        EXPECT_EQ(blocks[i].count, 4u);
    }
    EXPECT_EQ(blocks[1].payload, bytes(256, 0));
    std::vector<uint8_t> partial(256, 0x5A);
    partial[0x81] = 0xA1;
    partial[0x82] = 0xA2;
    partial[0x83] = 0xA3;
    EXPECT_EQ(blocks[3].payload, partial) << "the rest of a partly covered page is the fill byte";
}

TEST(Uf2Writer, WithoutAFamilyTheFlagAndFieldAreZero)
{
    const std::vector<Block> blocks = decode(written(imageOf({{0x2000, {1}}}), uf2()));
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].flags, 0u);
    EXPECT_EQ(blocks[0].family, 0u);
    std::vector<uint8_t> page(256, 0xFF);
    page[0] = 1;
    EXPECT_EQ(blocks[0].payload, page) << "0xFF by default: what erased flash holds";
}

TEST(Uf2Writer, SegmentsThatShareAPageShareOneBlock)
{
    const MemoryImage image = imageOf({{0x1000, {1, 2}}, {0x10F0, {3}}, {0x1100, {4}}});
    const std::vector<Block> blocks = decode(written(image, uf2()));
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[0].address, 0x1000u);
    EXPECT_EQ(blocks[0].payload[0], 1);
    EXPECT_EQ(blocks[0].payload[1], 2);
    EXPECT_EQ(blocks[0].payload[0xF0], 3);
    EXPECT_EQ(blocks[1].address, 0x1100u);
    EXPECT_EQ(blocks[1].count, 2u);
}

TEST(Uf2Writer, TheLastPageOfTheAddressSpaceAndAnEmptyImage)
{
    const std::vector<Block> blocks = decode(written(imageOf({{0xFFFFFFFE, {1, 2}}}), uf2()));
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].address, 0xFFFFFF00u);
    EXPECT_EQ(blocks[0].payload[254], 1);
    EXPECT_EQ(blocks[0].payload[255], 2);
    EXPECT_EQ(written(MemoryImage(), uf2()), "");
}

TEST(Uf2Reader, RoundTripsOfRandomImagesKeepEveryByte)
{
    std::mt19937 random(25);
    for (int i = 0; i < 20; ++i) {
        const MemoryImage image = randomImage(random, false);
        MemoryImage back;
        const std::string file = written(image, uf2(SAMD21, 0x00));
        const read_result_t read = readUf2(back, file);
        ASSERT_TRUE(read) << read.reason;
        EXPECT_EQ(read.blocks, file.size() / 512);
        EXPECT_EQ(read.families, std::vector<uint32_t>({SAMD21}));
        // What was read is the image padded to whole pages.
        for (const segment_t& s : image.segments())
            EXPECT_EQ(back.copyRange(s.address, s.bytes.size()), s.bytes);
        for (const segment_t& s : back.segments()) {
            EXPECT_EQ(s.address % 256, 0u);
            EXPECT_EQ(s.bytes.size() % 256, 0u);
        }
    }
}

TEST(Uf2Reader, ReadsPayloadsOfAnySizeUpTo476AndDetectsTheFormat)
{
    const std::string file = encode({0, 0x4000, bytes(476, 0), 0, 2, 0}) + encode({0, 0x4000 + 476, {9}, 1, 2, 0});
    MemoryImage image;
    const read_result_t read = readMemory(image, file.data(), file.size());
    ASSERT_TRUE(read) << read.reason;
    std::vector<uint8_t> all = bytes(476, 0);
    all.push_back(9);
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x4000, all}}));
    EXPECT_EQ(read.blocks, 2u);
    EXPECT_TRUE(read.families.empty());
    EXPECT_FALSE(image.hasStartAddress());
}

TEST(Uf2Reader, EveryBlockIsChecked)
{
    const std::string good = encode({0, 0x1000, {1}, 0, 2, 0});
    std::string second = encode({0, 0x1100, {2}, 1, 2, 0});
    std::string bad = second;
    putWord(bad, 0, 0x0A324656);
    EXPECT_EQ(failureOf(good + bad), "block 1: bad magic number: not a UF2 block");
    bad = second;
    putWord(bad, 4, 0);
    EXPECT_EQ(failureOf(good + bad), "block 1: bad magic number: not a UF2 block");
    bad = second;
    putWord(bad, 508, 0);
    EXPECT_EQ(failureOf(good + bad), "block 1: bad magic number: not a UF2 block");
    bad = second;
    putWord(bad, 16, 477);
    EXPECT_EQ(failureOf(good + bad), "block 1: payload of 477 bytes, more than 476");
    EXPECT_EQ(failureOf(good + encode({0, 0x1100, {2}, 2, 2, 0})),
              "block 1: block number 2 is not below the block count 2");
    EXPECT_EQ(failureOf(good + second.substr(0, 100)), "block 1: truncated: the file ends 100 bytes into its 512");
    EXPECT_EQ(failureOf(encode({0, 0xFFFFFFFF, {1, 2}, 0, 1, 0})), "block 0: its data runs past address 0xFFFFFFFF");
    MemoryImage image;
    EXPECT_TRUE(readUf2(image, encode({0, 0xFFFFFFFE, {1, 2}, 0, 1, 0})));
    const read_result_t result = readUf2(image, good + bad);
    EXPECT_EQ(result.status, status_t::SYNTAX);
}

TEST(Uf2Reader, BlocksNotForTheFlashAreSkipped)
{
    const std::string file = encode({0x00000001, 0x1000, {1, 2}, 0, 3, 0}) + // not main flash
                             encode({0x00001000, 0x2000, {3, 4}, 1, 3, 0}) + // a file container
                             encode({0, 0x3000, {5}, 2, 3, 0});
    MemoryImage image;
    const read_result_t read = readUf2(image, file);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x3000, {5}}}));
    EXPECT_EQ(read.blocks, 3u);
}

TEST(Uf2Reader, FamiliesThatGiveTheSameAddressesNeedASelection)
{
    const std::string rp = encode({0x2000, 0x10000000, {1, 2}, 0, 1, RP2040});
    const std::string samd = encode({0x2000, 0x10000001, {3, 4}, 0, 1, SAMD21});
    EXPECT_EQ(failureOf(rp + samd), "blocks of families samd21 (0x68ED2B88) and rp2040 (0xE48BFF56) give the same "
                                    "addresses: a family must be selected");
    MemoryImage image;
    read_result_t read = readUf2(image, rp + samd);
    EXPECT_EQ(read.status, status_t::OVERLAP);
    EXPECT_EQ(read.families, std::vector<uint32_t>({SAMD21, RP2040}));
    EXPECT_EQ(readUf2(image, rp + samd, 0xADA52840).status, status_t::MISMATCH);
    read = readUf2(image, rp + samd, RP2040);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x10000000, {1, 2}}}));
    EXPECT_EQ(read.families, std::vector<uint32_t>({SAMD21, RP2040}));
    read = readUf2(image, rp + samd, SAMD21);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x10000001, {3, 4}}}));
    EXPECT_EQ(failureOf(rp + samd, 0xADA52840), "no block of family nrf52840 (0xADA52840): the file holds samd21 "
                                                "(0x68ED2B88) and rp2040 (0xE48BFF56)");
}

TEST(Uf2Reader, FamiliesAtDifferentAddressesAreReadWhole)
{
    // As the RP2350's first block of another family, away from the program.
    const std::string file = encode({0x2000, 0x10FFFF00, {0xEF}, 0, 1, 0xE48BFF57}) +
                             encode({0x2000, 0x10000000, {1, 2}, 0, 1, 0xE48BFF59});
    MemoryImage image;
    const read_result_t read = readUf2(image, file);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x10000000, {1, 2}}, {0x10FFFF00, {0xEF}}}));
    EXPECT_EQ(read.families, std::vector<uint32_t>({0xE48BFF57, 0xE48BFF59}));
}

TEST(Uf2Reader, BlocksWithoutAFamilyAreKeptWhenOneIsSelected)
{
    const std::string file = encode({0, 0x1000, {1}, 0, 2, 0}) + encode({0x2000, 0x2000, {2}, 1, 2, RP2040});
    MemoryImage image;
    ASSERT_TRUE(readUf2(image, file, RP2040));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1000, {1}}, {0x2000, {2}}}));
}

TEST(Uf2Reader, RepeatedAndOverlappingBlocksKeepTheFirstValueWithAWarning)
{
    // An operating system may write a block twice; blocks in any order.
    const std::string file = encode({0, 0x2000, {5, 6}, 0, 3, 0}) + encode({0, 0x1000, {1, 2, 3}, 1, 3, 0}) +
                             encode({0, 0x1002, {9, 4}, 2, 3, 0});
    MemoryImage image;
    const read_result_t read = readUf2(image, file);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1000, {1, 2, 3, 4}}, {0x2000, {5, 6}}}));
    ASSERT_EQ(read.warnings.size(), 1u);
    EXPECT_EQ(read.warnings[0].line, 0u);
    EXPECT_EQ(read.warnings[0].message, "1 bytes given by more than one block; the first value of each is kept "
                                        "(first in block 2)");
}

TEST(Uf2Families, NamesAndNumbers)
{
    EXPECT_EQ(uf2FamilyByName("rp2040"), RP2040);
    EXPECT_EQ(uf2FamilyByName("RP2040"), RP2040);
    EXPECT_EQ(uf2FamilyByName("rp2350_arm_s"), 0xE48BFF59u);
    EXPECT_EQ(uf2FamilyByName("rp2350_riscv"), 0xE48BFF5Au);
    EXPECT_EQ(uf2FamilyByName("rp2350_arm_ns"), 0xE48BFF5Bu);
    EXPECT_EQ(uf2FamilyByName("rp2xxx_absolute"), 0xE48BFF57u);
    EXPECT_EQ(uf2FamilyByName("nrf52840"), 0xADA52840u);
    EXPECT_EQ(uf2FamilyByName("samd21"), SAMD21);
    EXPECT_EQ(uf2FamilyByName("samd51"), 0x55114460u);
    EXPECT_EQ(uf2FamilyByName("stm32f4"), 0x57755A57u);
    EXPECT_EQ(uf2FamilyByName("esp32s2"), 0xBFDD4EEEu);
    EXPECT_EQ(uf2FamilyByName("esp32s3"), 0xC47E5767u);
    EXPECT_EQ(uf2FamilyByName("0x12345678"), 0x12345678u);
    EXPECT_EQ(uf2FamilyByName("4294967295"), 0xFFFFFFFFu);
    EXPECT_EQ(uf2FamilyByName("4294967296"), std::nullopt);
    EXPECT_EQ(uf2FamilyByName("0x123456789"), std::nullopt);
    EXPECT_EQ(uf2FamilyByName("rp9999"), std::nullopt);
    EXPECT_EQ(uf2FamilyByName(""), std::nullopt);
    EXPECT_EQ(uf2FamilyName(RP2040), "rp2040");
    EXPECT_EQ(uf2FamilyName(0x12345678), "0x12345678");
    EXPECT_GE(uf2Families().size(), 70u);
    for (const uf2_family_t& f : uf2Families())
        EXPECT_EQ(uf2FamilyByName(f.name), f.id) << f.name << ": every name names its own family";
}
