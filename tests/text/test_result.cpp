// The result model: every operation that can fail reports a status that
// names the kind of failure, its reason, and the line and address to blame
// where there are any; ok() and the conversion to bool follow the status.
// One case for each status an operation gives, through the public API.
#include "checksum.h"
#include "flash_plan.h"
#include "formats.h"
#include "image_blocks.h"
#include "memory_image.h"
#include "result.h"
#include "support/elf_builder.h"
#include "support/hex_text.h"
#include "support/result_print.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

read_result_t readText(const std::string& text, const read_options_t& options = read_options_t())
{
    MemoryImage image;
    return readMemory(image, text.data(), text.size(), options);
}

MemoryImage imageAt(uint32_t address, std::vector<uint8_t> bytes)
{
    MemoryImage image;
    image.write(address, bytes.data(), bytes.size());
    return image;
}

} // namespace

TEST(Result, OkFollowsTheStatus)
{
    result_t result;
    EXPECT_EQ(result.status, status_t::OK);
    EXPECT_TRUE(result.ok());
    EXPECT_TRUE(static_cast<bool>(result));
    EXPECT_EQ(result.line, 0u);
    EXPECT_EQ(result.address, std::nullopt);
    result = failure(status_t::SYNTAX, "record too short", 7);
    EXPECT_FALSE(result.ok());
    EXPECT_FALSE(static_cast<bool>(result));
    EXPECT_EQ(result.reason, "record too short");
    EXPECT_EQ(result.line, 7u);
    result = failureAt(status_t::OUT_OF_RANGE, "past the end", 0xFFFFFFFF);
    EXPECT_EQ(result.address, std::optional<uint32_t>(0xFFFFFFFF));
}

TEST(Result, EveryStatusHasItsName)
{
    const std::vector<std::pair<status_t, std::string>> names = {
        {status_t::OK, "OK"},
        {status_t::BAD_ARGUMENT, "BAD_ARGUMENT"},
        {status_t::CANNOT_OPEN, "CANNOT_OPEN"},
        {status_t::CANNOT_READ, "CANNOT_READ"},
        {status_t::CANNOT_WRITE, "CANNOT_WRITE"},
        {status_t::SYNTAX, "SYNTAX"},
        {status_t::CHECKSUM, "CHECKSUM"},
        {status_t::UNSUPPORTED, "UNSUPPORTED"},
        {status_t::UNKNOWN_FORMAT, "UNKNOWN_FORMAT"},
        {status_t::OVERLAP, "OVERLAP"},
        {status_t::OUT_OF_RANGE, "OUT_OF_RANGE"},
        {status_t::TOO_LARGE, "TOO_LARGE"},
        {status_t::OUT_OF_MEMORY, "OUT_OF_MEMORY"},
        {status_t::MISMATCH, "MISMATCH"}};
    for (const auto& n : names)
        EXPECT_EQ(statusName(n.first), n.second);
}

TEST(Result, ReadingNamesTheKindTheLineAndTheReason)
{
    TempDir dir;
    MemoryImage image;
    read_result_t r = readFile(image, dir.file("missing.hex").c_str());
    EXPECT_EQ(r.status, status_t::CANNOT_OPEN);
    EXPECT_EQ(r.reason, "cannot open the file: No such file or directory");
    r = readFile(image, dir.path().c_str());
    EXPECT_EQ(r.status, status_t::CANNOT_READ);
    EXPECT_EQ(r.reason, "cannot read the file: Is a directory");

    r = readText(joinLines({dataRecord(0, {1}), ":0300300002337A1F", EOF_RECORD}));
    EXPECT_EQ(r.status, status_t::CHECKSUM);
    EXPECT_EQ(r.reason, "checksum error");
    EXPECT_EQ(r.line, 2u);
    r = readText(joinLines({dataRecord(0, {1}), ":03003000", EOF_RECORD}));
    EXPECT_EQ(r.status, status_t::SYNTAX);
    EXPECT_EQ(r.reason, "record too short");
    EXPECT_EQ(r.line, 2u);
    r = readText(joinLines({dataRecord(0, {1}), hexRecord(0x0A, 0, {1, 2}), EOF_RECORD}));
    EXPECT_EQ(r.status, status_t::UNSUPPORTED);
    EXPECT_EQ(r.reason, "unsupported record type 0A");
    EXPECT_EQ(r.line, 2u);
    r = readText("S00600004844521B\nS4030000FC\n");
    EXPECT_EQ(r.status, status_t::UNSUPPORTED);
    EXPECT_EQ(r.line, 2u);
    r = readText("S00600004844521B\nS1050100AABB95\n");
    EXPECT_EQ(r.status, status_t::CHECKSUM);
    EXPECT_EQ(r.line, 2u);
    r = readText("hello\n");
    EXPECT_EQ(r.status, status_t::UNKNOWN_FORMAT);
    EXPECT_EQ(r.reason, "not Intel HEX, S-records, ELF, UF2, TI-TXT, Verilog memory file or Intel MIF (the format of binary input must be given)");
    r = readText("");
    EXPECT_EQ(r.status, status_t::UNKNOWN_FORMAT);
    EXPECT_EQ(r.reason, "the input is empty");
    EXPECT_TRUE(readText(joinLines({dataRecord(0, {1}), EOF_RECORD})).ok());

    r = readText(std::string(16, 'x'), readAs(file_format_t::BINARY, 0xFFFFFFF8));
    EXPECT_EQ(r.status, status_t::OUT_OF_RANGE);
    EXPECT_EQ(r.address, std::optional<uint32_t>(0xFFFFFFF8));
    r = readText("x", readAs(file_format_t::ELF));
    EXPECT_EQ(r.status, status_t::SYNTAX);
    EXPECT_EQ(r.reason, "not an ELF file: it does not start with the ELF magic bytes");
}

TEST(Result, WritingNamesTheKind)
{
    TempDir dir;
    const MemoryImage image = imageAt(0x08000000, {1, 2, 3});
    write_options_t options;
    options.recordSize = 0;
    result_t r = writeFile(image, dir.file("out.hex").c_str(), options);
    EXPECT_EQ(r.status, status_t::BAD_ARGUMENT);
    EXPECT_EQ(r.reason, "record size 0 is out of range (1 to 255)");
    options = write_options_t();
    options.addressing = addressing_t::SEGMENT;
    r = writeFile(image, dir.file("out.hex").c_str(), options);
    EXPECT_EQ(r.status, status_t::OUT_OF_RANGE);
    EXPECT_EQ(r.address, std::optional<uint32_t>(0x08000002));
    options = write_options_t();
    options.format = file_format_t::ELF;
    EXPECT_EQ(writeFile(image, dir.file("out.elf").c_str(), options).status, status_t::UNSUPPORTED);
    r = writeFile(image, dir.file("missing/out.hex").c_str());
    EXPECT_EQ(r.status, status_t::CANNOT_OPEN);
    EXPECT_TRUE(writeFile(image, dir.file("out.hex").c_str()).ok());
    EXPECT_TRUE(listFiles(dir.path()) == std::vector<std::string>({"out.hex"}));
}

TEST(Result, ImageOperationsNameTheKindAndTheAddress)
{
    MemoryImage image = imageAt(0x100, {1, 2, 3, 4});
    const uint8_t byte = 0;
    result_t r = image.write(0xFFFFFFFF, &byte, 2);
    EXPECT_EQ(r.status, status_t::OUT_OF_RANGE);
    EXPECT_EQ(r.address, std::optional<uint32_t>(0xFFFFFFFF));
    r = image.offset(-0x101);
    EXPECT_EQ(r.status, status_t::OUT_OF_RANGE);
    EXPECT_EQ(r.address, std::optional<uint32_t>(0x100));
    EXPECT_EQ(image.setStartAddress(start_address_t{4, 0}).status, status_t::BAD_ARGUMENT);
    EXPECT_EQ(image.setHeader(std::string(253, 'h')).status, status_t::TOO_LARGE);
    EXPECT_EQ(image.swapBytes(3).status, status_t::BAD_ARGUMENT);
    MemoryImage odd = imageAt(0x201, {1, 2});
    r = odd.swapBytes(2);
    EXPECT_EQ(r.status, status_t::BAD_ARGUMENT);
    EXPECT_EQ(r.address, std::optional<uint32_t>(0x201));

    const merge_result_t merged = image.merge(imageAt(0x102, {9}));
    EXPECT_EQ(merged.status, status_t::OVERLAP);
    EXPECT_EQ(merged.address, std::optional<uint32_t>(0x102));
    EXPECT_EQ(merged.reason, "both images give data at 0x00000102");

    std::vector<uint8_t> dump = {1, 2, 7, 4};
    verify_result_t verified = image.verify(dump.data(), dump.size(), 0x100);
    EXPECT_EQ(verified.status, status_t::MISMATCH);
    EXPECT_EQ(verified.address, std::optional<uint32_t>(0x102));
    EXPECT_EQ(verified.reason, "1 of 4 bytes differ");
    dump[2] = 3;
    EXPECT_TRUE(image.verify(dump.data(), dump.size(), 0x100).ok());

    Checksum::algorithm_t crc32;
    ASSERT_TRUE(Checksum::findAlgorithm("crc32", crc32));
    r = Checksum::insert(image, crc32, range_t{0x100, 0x104}, 0xFF, 0xFFFFFFFE, Checksum::byte_order_t::LITTLE);
    EXPECT_EQ(r.status, status_t::OUT_OF_RANGE);
    EXPECT_EQ(r.address, std::optional<uint32_t>(0xFFFFFFFE));
    r = Checksum::insert(image, crc32, range_t{0x100, 0x104}, 0xFF, 0x102, Checksum::byte_order_t::LITTLE);
    EXPECT_EQ(r.status, status_t::BAD_ARGUMENT);

    IntelHexFile file;
    block_options_t oneBlock;
    oneBlock.oneBlock = true;
    oneBlock.maxImageSize = 2;
    EXPECT_EQ(appendToBlocks(image, file, oneBlock).status, status_t::TOO_LARGE);
}

TEST(Result, FlashPlansNameTheKindAndTheAddress)
{
    FlashPlan::geometry_t geometry;
    EXPECT_EQ(FlashPlan::parseSectors("0x08000000:4x", geometry).status, status_t::SYNTAX);
    EXPECT_EQ(FlashPlan::parseSectors("0x08000080:1x1K", geometry).status, status_t::BAD_ARGUMENT);
    EXPECT_EQ(FlashPlan::parseSectors("0xFFFFF000:2x4K", geometry).status, status_t::OUT_OF_RANGE);
    ASSERT_TRUE(FlashPlan::parseSectors("0x08000000:4x1K", geometry));
    FlashPlan plan;
    const result_t made = plan.make(imageAt(0x08001000, {1}), geometry);
    EXPECT_EQ(made.status, status_t::OUT_OF_RANGE);
    EXPECT_EQ(made.address, std::optional<uint32_t>(0x08001000));
}
