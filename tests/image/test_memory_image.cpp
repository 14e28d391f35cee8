// MemoryImage: queries, writes, start addresses, the 32-bit edges, and the
// way to and from IntelHexFile blocks. Reading HEX into an image has its own
// file, test_full_format_reader.cpp.
#include "image_blocks.h"
#include "formats.h"
#include "memory_image.h"
#include "support/block_view.h"
#include "support/capture.h"
#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <optional>

#include <map>
#include <random>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

using Segment = segment_t;

} // namespace

TEST(MemoryImage, EmptyImage)
{
    const MemoryImage image;
    EXPECT_TRUE(image.empty());
    EXPECT_TRUE(image.segments().empty());
    EXPECT_EQ(image.lowestAddress(), 0u);
    EXPECT_EQ(image.highestAddress(), 0u);
    EXPECT_EQ(image.span(), 0u);
    EXPECT_EQ(image.dataSize(), 0u);
    EXPECT_FALSE(image.hasDataAt(0));
    EXPECT_FALSE(image.hasDataAt(0xFFFFFFFF));
    EXPECT_EQ(image.copyRange(0x10, 3, 0xAB), std::vector<uint8_t>({0xAB, 0xAB, 0xAB}));
    EXPECT_FALSE(image.hasStartAddress());
    EXPECT_EQ(image.startAddress().type, 0);
    EXPECT_EQ(image.startAddress().value, 0u);
}

TEST(MemoryImage, QueriesOverSegmentsAndGaps)
{
    const MemoryImage image = imageOf({{0x08000000, {1, 2, 3, 4}}, {0x08000010, {5, 6}}});
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x08000000, {1, 2, 3, 4}}, {0x08000010, {5, 6}}}));
    EXPECT_FALSE(image.empty());
    EXPECT_EQ(image.lowestAddress(), 0x08000000u);
    EXPECT_EQ(image.highestAddress(), 0x08000011u);
    EXPECT_EQ(image.span(), 0x12u);
    EXPECT_EQ(image.dataSize(), 6u);
    EXPECT_EQ(image.segments()[0].lastAddress(), 0x08000003u);
    EXPECT_EQ(image.segments()[0].endAddress(), 0x08000004u);
    EXPECT_FALSE(image.hasDataAt(0x07FFFFFF));
    EXPECT_TRUE(image.hasDataAt(0x08000000));
    EXPECT_TRUE(image.hasDataAt(0x08000003));
    EXPECT_FALSE(image.hasDataAt(0x08000004));
    EXPECT_FALSE(image.hasDataAt(0x0800000F));
    EXPECT_TRUE(image.hasDataAt(0x08000011));
    EXPECT_FALSE(image.hasDataAt(0x08000012));
    // A range that begins before the data, crosses the gap and ends after.
    EXPECT_EQ(image.copyRange(0x07FFFFFE, 0x16, 0xFF),
              std::vector<uint8_t>({0xFF, 0xFF, 1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                    0xFF, 0xFF, 5, 6, 0xFF, 0xFF}));
    EXPECT_EQ(image.copyRange(0x08000002, 2), std::vector<uint8_t>({3, 4}));
    EXPECT_EQ(image.copyRange(0x08000002, 0), std::vector<uint8_t>());
    uint8_t out[3] = {9, 9, 9};
    image.copyRange(0x08000011, 3, 0x00, out);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 3), std::vector<uint8_t>({6, 0, 0}));
}

TEST(MemoryImage, WritesJoinTouchingAndOverlappingSegments)
{
    MemoryImage image = imageOf({{0x100, {1, 1}}, {0x110, {2, 2}}, {0x120, {3, 3}}});
    // Touching the end of one segment: it grows.
    ASSERT_TRUE(image.write(0x102, std::vector<uint8_t>{4}.data(), 1));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 1, 4}}, {0x110, {2, 2}}, {0x120, {3, 3}}}));
    // Touching the start of one: it grows downwards.
    ASSERT_TRUE(image.write(0x10F, std::vector<uint8_t>{5}.data(), 1));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 1, 4}}, {0x10F, {5, 2, 2}}, {0x120, {3, 3}}}));
    // Bridging two segments and replacing a byte of each.
    ASSERT_TRUE(image.write(0x110, std::vector<uint8_t>(17, 7).data(), 17));
    std::vector<uint8_t> joined = {5};
    joined.insert(joined.end(), 17, 7);
    joined.push_back(3);
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 1, 4}}, {0x10F, joined}}));
    // Inside a segment: bytes replaced, nothing else changes.
    ASSERT_TRUE(image.write(0x101, std::vector<uint8_t>{8}.data(), 1));
    EXPECT_EQ(segmentsOf(image)[0], (SegmentView{0x100, {1, 8, 4}}));
    // In a gap, apart from everything.
    ASSERT_TRUE(image.write(0x108, std::vector<uint8_t>{9}.data(), 1));
    EXPECT_EQ(image.segments().size(), 3u);
    EXPECT_EQ(segmentsOf(image)[1], (SegmentView{0x108, {9}}));
    // Over everything.
    ASSERT_TRUE(image.write(0xF0, std::vector<uint8_t>(0x60, 0xEE).data(), 0x60));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0xF0, std::vector<uint8_t>(0x60, 0xEE)}}));
    // Nothing at all.
    ASSERT_TRUE(image.write(0x5000, nullptr, 0));
    EXPECT_EQ(image.segments().size(), 1u);
    expectWellFormed(image);
}

TEST(MemoryImage, RandomWritesMatchAByteMap)
{
    std::mt19937 rng(5);
    std::uniform_int_distribution<uint32_t> address(0, 600);
    std::uniform_int_distribution<size_t> length(0, 40);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 50; ++round) {
        MemoryImage image;
        std::map<uint32_t, uint8_t> reference;
        for (int w = 0; w < 40; ++w) {
            const uint32_t at = 0xFFFFFC00u + address(rng); // near the top of the address space
            std::vector<uint8_t> bytes(length(rng));
            for (uint8_t& b : bytes)
                b = static_cast<uint8_t>(byte(rng));
            ASSERT_TRUE(image.write(at, bytes.data(), bytes.size()));
            for (size_t i = 0; i < bytes.size(); ++i)
                reference[at + static_cast<uint32_t>(i)] = bytes[i];
        }
        expectWellFormed(image);
        EXPECT_EQ(image.dataSize(), reference.size());
        std::map<uint32_t, uint8_t> held;
        for (const Segment& s : image.segments())
            for (size_t i = 0; i < s.bytes.size(); ++i)
                held[s.address + static_cast<uint32_t>(i)] = s.bytes[i];
        EXPECT_EQ(held, reference);
        const std::vector<uint8_t> flat = image.copyRange(0xFFFFFC00u, 0x400, 0x5A);
        for (uint32_t i = 0; i < 0x400; ++i) {
            const auto found = reference.find(0xFFFFFC00u + i);
            ASSERT_EQ(flat[i], found == reference.end() ? 0x5A : found->second) << i;
            ASSERT_EQ(image.hasDataAt(0xFFFFFC00u + i), found != reference.end()) << i;
        }
    }
}

TEST(MemoryImage, LastByteAtTheTopOfTheAddressSpace)
{
    MemoryImage image;
    const std::vector<uint8_t> top = countingBytes(16, 0xF0);
    ASSERT_TRUE(image.write(0xFFFFFFF0, top.data(), top.size()));
    EXPECT_EQ(image.highestAddress(), 0xFFFFFFFFu);
    EXPECT_EQ(image.segments()[0].lastAddress(), 0xFFFFFFFFu);
    EXPECT_EQ(image.segments()[0].endAddress(), 0x100000000ull);
    EXPECT_EQ(image.span(), 16u);
    EXPECT_TRUE(image.hasDataAt(0xFFFFFFFF));
    // Bytes asked for past 0xFFFFFFFF are fill.
    EXPECT_EQ(image.copyRange(0xFFFFFFFE, 4, 0x11), std::vector<uint8_t>({0xFE, 0xFF, 0x11, 0x11}));

    // From address 0 to 0xFFFFFFFF: the span is 2^32, more than 32 bits hold.
    ASSERT_TRUE(image.write(0, top.data(), 1));
    EXPECT_EQ(image.lowestAddress(), 0u);
    EXPECT_EQ(image.span(), 0x100000000ull);
    EXPECT_EQ(image.dataSize(), 17u);
    expectWellFormed(image);
}

TEST(MemoryImage, WritePastTheTopFailsAndChangesNothing)
{
    MemoryImage image = imageOf({{0xFFFFFFF0, {1}}});
    const std::vector<uint8_t> bytes(17, 2);
    const result_t result = image.write(0xFFFFFFF0, bytes.data(), bytes.size());
    EXPECT_FALSE(result);
    EXPECT_FALSE(result.ok());
    EXPECT_EQ(result.reason, "the bytes would run past address 0xFFFFFFFF");
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0xFFFFFFF0, {1}}}));
    EXPECT_TRUE(image.write(0xFFFFFFFF, bytes.data(), 1));
}

TEST(MemoryImage, StartAddress)
{
    MemoryImage image;
    EXPECT_TRUE(image.setStartAddress({5, 0x08000131}));
    EXPECT_TRUE(image.hasStartAddress());
    EXPECT_EQ(image.startAddress().type, 5);
    EXPECT_EQ(image.startAddress().value, 0x08000131u);
    EXPECT_TRUE(image.setStartAddress({3, 0x1000FC00}));
    EXPECT_EQ(image.startAddress().type, 3);

    const result_t bad = image.setStartAddress({4, 1});
    EXPECT_FALSE(bad);
    EXPECT_EQ(bad.reason, "a start address has type 3 or 5, not 4");
    EXPECT_EQ(image.startAddress().type, 3);

    image.clearStartAddress();
    EXPECT_FALSE(image.hasStartAddress());
    EXPECT_EQ(image.startAddress().value, 0u);

    ASSERT_TRUE(image.setStartAddress({5, 1}));
    ASSERT_TRUE(image.write(0, std::vector<uint8_t>{1}.data(), 1));
    image.clear();
    EXPECT_TRUE(image.empty());
    EXPECT_FALSE(image.hasStartAddress());
}

TEST(MemoryImage, CopiesAreIndependent)
{
    MemoryImage image = imageOf({{0x10, {1, 2}}});
    ASSERT_TRUE(image.setStartAddress({5, 0x10}));
    MemoryImage copy(image);
    ASSERT_TRUE(copy.write(0x10, std::vector<uint8_t>{9}.data(), 1));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x10, {1, 2}}}));
    EXPECT_EQ(segmentsOf(copy), std::vector<SegmentView>({{0x10, {9, 2}}}));
    MemoryImage assigned;
    assigned = copy;
    EXPECT_EQ(segmentsOf(assigned), segmentsOf(copy));
    EXPECT_EQ(assigned.startAddress().value, 0x10u);
    MemoryImage moved(std::move(copy));
    EXPECT_EQ(segmentsOf(moved), segmentsOf(assigned));
}

TEST(MemoryImage, FromBlocksPlacesEachBlockAtItsFullAddress)
{
    // Strict blocks: two under base 0x0800, one under 0x0801, and two that
    // overlap (records at 0x20 and 0x28, 16 bytes each).
    TempDir dir;
    const std::string path =
        dir.write("in.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, {1, 2}), dataRecord(0x0002, {3}),
                                       dataRecord(0x0020, countingBytes(16)), dataRecord(0x0028, countingBytes(16, 0x80)),
                                       linearBaseRecord(0x0801), dataRecord(0x0000, {4}), EOF_RECORD}));
    IntelHexFile file;
    ASSERT_TRUE(file.load(path.c_str(), false));
    ASSERT_EQ(file.getBlockCount(), 4u);
    const MemoryImage image = imageFromBlocks(file);
    std::vector<uint8_t> overlapped = countingBytes(8);
    const std::vector<uint8_t> later = countingBytes(16, 0x80);
    overlapped.insert(overlapped.end(), later.begin(), later.end());
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x08000000, {1, 2, 3}}, {0x08000020, overlapped},
                                                            {0x08010000, {4}}}));
    EXPECT_FALSE(image.hasStartAddress());
}

TEST(MemoryImage, FromBlocksWrapsPast4GiBAndKeepsTheStartAddress)
{
    TempDir dir;
    const std::string path =
        dir.write("top.hex", joinLines({linearBaseRecord(0xFFFF), dataRecord(0xFFFC, countingBytes(8)),
                                        hexRecord(0x05, 0, {0xFF, 0xFF, 0xFF, 0xFC}), EOF_RECORD}));
    IntelHexFile file;
    // The full-format reader already splits the record at 4 GiB; strict
    // blocks, made here from a buffer, do not.
    ASSERT_TRUE(file.loadFullFormat(path.c_str(), false));
    EXPECT_EQ(file.getBlockCount(), 2u);
    const MemoryImage image = imageFromBlocks(file);
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0, countingBytes(4, 4)}, {0xFFFFFFFC, countingBytes(4)}}));
    EXPECT_TRUE(image.hasStartAddress());
    EXPECT_EQ(image.startAddress().type, 5);
    EXPECT_EQ(image.startAddress().value, 0xFFFFFFFCu);

    const std::vector<uint8_t> bytes = countingBytes(6);
    const IntelHexFile wrapping(0xFFFF, 0xFFFE, bytes.size(), bytes.data());
    EXPECT_EQ(segmentsOf(imageFromBlocks(wrapping)),
              std::vector<SegmentView>({{0, countingBytes(4, 2)}, {0xFFFFFFFE, countingBytes(2)}}));
}

TEST(MemoryImage, AppendToMakesOneBlockPerSegment)
{
    MemoryImage image = imageOf({{0x0800FFF0, countingBytes(0x20)}, {0x08020000, {7}}});
    ASSERT_TRUE(image.setStartAddress({5, 0x08000101}));
    const std::vector<uint8_t> old = {0xAA};
    IntelHexFile file(0x1234, 0x5678, 1, old.data());
    ASSERT_TRUE(appendToBlocks(image, file));
    EXPECT_EQ(blocksOf(file), std::vector<BlockView>({{0x12345678, {0xAA}}, {0x0800FFF0, countingBytes(0x20)},
                                                      {0x08020000, {7}}}));
    // A block may run past its 64 KiB linear base.
    EXPECT_EQ(file[1].getLinearBase(), 0x0800);
    EXPECT_EQ(file[1].getStartAddress(), 0xFFF0);
    EXPECT_EQ(file[1].getSize(), 0x20u);
    EXPECT_TRUE(file.hasStartAddress());
    EXPECT_EQ(file.getStartAddressType(), 5);
    EXPECT_EQ(file.getStartAddressValue(), 0x08000101u);
    // The const version leaves the image as it was.
    EXPECT_EQ(image.segments().size(), 2u);
}

TEST(MemoryImage, AppendToOneBlockFillsTheGaps)
{
    const MemoryImage image = imageOf({{0x100, {1, 2}}, {0x105, {3}}});
    IntelHexFile file;
    block_options_t options;
    options.oneBlock = true;
    options.fill = 0x00;
    ASSERT_TRUE(appendToBlocks(image, file, options));
    EXPECT_EQ(blocksOf(file), std::vector<BlockView>({{0x100, {1, 2, 0, 0, 0, 3}}}));
    EXPECT_FALSE(file.hasStartAddress());

    // An empty image gives no block.
    IntelHexFile none;
    ASSERT_TRUE(appendToBlocks(MemoryImage(), none, options));
    EXPECT_EQ(none.getBlockCount(), 0u);
}

TEST(MemoryImage, AppendToOneBlockOverTheLimitFailsWithTheFileUnchanged)
{
    MemoryImage image = imageOf({{0, {1}}, {16, {2}}});
    IntelHexFile file;
    block_options_t options;
    options.oneBlock = true;
    options.maxImageSize = 16;
    const result_t result = appendToBlocks(image, file, options);
    EXPECT_FALSE(result);
    EXPECT_EQ(result.reason, "image spans 17 bytes, more than the limit of 16 bytes");
    EXPECT_EQ(file.getBlockCount(), 0u);
    // Moving fails the same way and keeps the image.
    EXPECT_FALSE(appendToBlocks(std::move(image), file, options));
    EXPECT_EQ(image.segments().size(), 2u);
    options.maxImageSize = 17;
    EXPECT_TRUE(appendToBlocks(std::move(image), file, options));
    EXPECT_EQ(blocksOf(file), std::vector<BlockView>({{0, {1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                            0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 2}}}));
    EXPECT_TRUE(image.empty());
}

TEST(MemoryImage, MovingIntoBlocksTakesTheBytesWithoutCopying)
{
    MemoryImage image = imageOf({{0x2000, countingBytes(300)}});
    const uint8_t* bytes = image.segments()[0].bytes.data();
    IntelHexFile file;
    ASSERT_TRUE(appendToBlocks(std::move(image), file));
    EXPECT_EQ(file[0].getBuffer(), bytes);
    EXPECT_TRUE(image.empty());
}

TEST(MemoryImage, BlocksRoundTrip)
{
    MemoryImage image = imageOf({{0x00000000, {1}}, {0x0000FFFF, {2, 3}}, {0x08000000, countingBytes(1000)},
                                 {0xFFFFFF00, countingBytes(256)}});
    ASSERT_TRUE(image.setStartAddress({3, 0x10002000}));
    IntelHexFile file;
    ASSERT_TRUE(appendToBlocks(image, file));
    const MemoryImage back = imageFromBlocks(file);
    EXPECT_EQ(segmentsOf(back), segmentsOf(image));
    EXPECT_EQ(back.startAddress().type, 3);
    EXPECT_EQ(back.startAddress().value, 0x10002000u);
}

TEST(Formats, DetectFormatFromTheFirstBytes)
{
    const std::vector<std::pair<std::string, file_format_t>> told = {
        {":00000001FF", file_format_t::INTEL_HEX},       {" \t\r\n:00", file_format_t::INTEL_HEX},
        {"\xEF\xBB\xBF:00", file_format_t::INTEL_HEX},    {"S00600004844521B", file_format_t::SRECORD},
        {"\n\nS1", file_format_t::SRECORD},              {std::string("\x7F" "ELF\x01", 5), file_format_t::ELF}};
    for (const auto& t : told)
        EXPECT_EQ(detectFormat(t.first.data(), t.first.size()), std::optional<file_format_t>(t.second)) << t.first;
    for (const std::string& other : {std::string(""), std::string("S"), std::string("SX"), std::string("x:00"),
                                     std::string("\x7F" "EL", 3), std::string("\x01\x02")})
        EXPECT_EQ(detectFormat(other.data(), other.size()), std::nullopt) << other;
}

TEST(MemoryImage, AnInputWhoseFormatCannotBeToldIsAnError)
{
    TempDir dir;
    MemoryImage image = imageOf({{1, {1}}});
    EXPECT_EQ(readMemory(image, "", 0).reason, "the input is empty");
    EXPECT_EQ(readFile(image, dir.write("empty", "").c_str()).reason, "the file is empty");
    EXPECT_EQ(readMemory(image, "hello", 5).reason,
              "not Intel HEX, S-records, ELF, UF2, TI-TXT, Verilog memory file or Intel MIF (the format of binary input must be given)");
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{1, {1}}}));
}
