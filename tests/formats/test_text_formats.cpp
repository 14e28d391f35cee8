// The text formats of memory programmers and FPGA tools: TI-TXT, Verilog
// memory files, MIF and INHX16 written to the exact text and read back,
// with every rule of their readers and the line each failure names; COE
// and C arrays, which are only written; and detection of content that fits
// two formats.
#include "formats.h"
#include "memory_image.h"
#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/result_print.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

write_options_t as(file_format_t format, unsigned wordWidth = 8)
{
    write_options_t options;
    options.format = format;
    options.wordWidth = wordWidth;
    return options;
}

std::string written(const MemoryImage& image, const write_options_t& options)
{
    std::ostringstream out;
    const result_t result = writeStream(image, out, options);
    EXPECT_TRUE(result) << result.reason;
    return out.str();
}

read_result_t readText(MemoryImage& image, const std::string& text, file_format_t format, unsigned wordWidth = 8)
{
    read_options_t options = readAs(format);
    options.wordWidth = wordWidth;
    return readMemory(image, text.data(), text.size(), options);
}

// "LINE: REASON" of a failed read, which must leave the image as it was.
std::string failureOf(const std::string& text, file_format_t format, unsigned wordWidth = 8)
{
    MemoryImage image = imageOf({{7, {7}}});
    const read_result_t result = readText(image, text, format, wordWidth);
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{7, {7}}})) << "a failed read changed the image";
    return result ? "ok" : std::to_string(result.line) + ": " + result.reason;
}

const MemoryImage TWO_SEGMENTS = imageOf({{0xF000, countingBytes(18, 0x30)}, {0x12345, {0xAB, 0xCD, 0xEF}}});

} // namespace

// --- TI-TXT -------------------------------------------------------------------

TEST(TiTxt, WrittenWithSixteenBytesALineAndQAtTheEnd)
{
    EXPECT_EQ(written(TWO_SEGMENTS, as(file_format_t::TI_TXT)),
              "@F000\n"
              "30 31 32 33 34 35 36 37 38 39 3A 3B 3C 3D 3E 3F\n"
              "40 41\n"
              "@12345\n"
              "AB CD EF\n"
              "q\n");
    write_options_t crlf = as(file_format_t::TI_TXT);
    crlf.crlf = true;
    EXPECT_EQ(written(imageOf({{0x10, {1}}}), crlf), "@0010\r\n01\r\nq\r\n");
    EXPECT_EQ(written(MemoryImage(), as(file_format_t::TI_TXT)), "q\n");
}

TEST(TiTxt, ReadsSectionsLowerCaseBlankLinesAndCrLf)
{
    MemoryImage image;
    const read_result_t read = readText(image,
                                        "\n@f000\r\n31 40 00 03\r\n  b2 40\t80 5A  \r\n\r\n@FFFE\r\n00 F0\r\nq\r\n",
                                        file_format_t::TI_TXT);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_TRUE(read.warnings.empty());
    EXPECT_EQ(segmentsOf(image),
              std::vector<SegmentView>({{0xF000, {0x31, 0x40, 0x00, 0x03, 0xB2, 0x40, 0x80, 0x5A}}, {0xFFFE, {0x00, 0xF0}}}));
}

TEST(TiTxt, BadInputNamesTheLine)
{
    const file_format_t F = file_format_t::TI_TXT;
    EXPECT_EQ(failureOf("@1000\n01 02\n", F), "0: the file ends without the end marker q");
    EXPECT_EQ(failureOf("@1000\n01 0G\nq\n", F), "2: a line of data is bytes of two hex digits separated by spaces");
    EXPECT_EQ(failureOf("@1000\n010\nq\n", F), "2: a line of data is bytes of two hex digits separated by spaces");
    EXPECT_EQ(failureOf("@1000\n1 2\nq\n", F), "2: a line of data is bytes of two hex digits separated by spaces");
    EXPECT_EQ(failureOf("01 02\nq\n", F), "1: data before the first address line");
    EXPECT_EQ(failureOf("@10x0\nq\n", F), "1: an address line is '@' and hex digits");
    EXPECT_EQ(failureOf("@100000000\nq\n", F), "1: address 0x100000000 lies outside the 32-bit address space");
    EXPECT_EQ(failureOf("@FFFFFFFF\n01 02\nq\n", F), "2: the line's data runs past address 0xFFFFFFFF");
    EXPECT_EQ(failureOf("@1000\n01\nq\n02\n", F), "4: text after the end marker q");
    MemoryImage image;
    ASSERT_TRUE(readText(image, "@FFFFFFFE\n01 02\nq\n", F));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0xFFFFFFFE, {1, 2}}}));
}

// --- Verilog memory files -------------------------------------------------------

TEST(Verilog, WordsOfEachWidthFirstByteMostSignificant)
{
    const MemoryImage image = imageOf({{0x1000, countingBytes(9, 1)}});
    EXPECT_EQ(written(image, as(file_format_t::VERILOG, 8)),
              "@00001000\n01 02 03 04 05 06 07 08 09\n");
    EXPECT_EQ(written(image, as(file_format_t::VERILOG, 16)), "@00000800\n0102 0304 0506 0708 09FF\n");
    EXPECT_EQ(written(image, as(file_format_t::VERILOG, 32)), "@00000400\n01020304 05060708 09FFFFFF\n");
    EXPECT_EQ(written(image, as(file_format_t::VERILOG, 64)), "@00000200\n0102030405060708 09FFFFFFFFFFFFFF\n");
    // Unaligned data: the rest of the word is the fill byte.
    write_options_t fill = as(file_format_t::VERILOG, 32);
    fill.fill = 0x00;
    EXPECT_EQ(written(imageOf({{0x1002, {0xAA, 0xBB, 0xCC}}}), fill), "@00000400\n0000AABB CC000000\n");
    // 16 bytes a line; a new address after a gap.
    EXPECT_EQ(written(imageOf({{0, countingBytes(20)}, {0x40, {0xEE}}}), as(file_format_t::VERILOG, 8)),
              "@00000000\n00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F\n10 11 12 13\n@00000040\nEE\n");
}

TEST(Verilog, ReadsCommentsAddressesAndWordsOfAnyLength)
{
    MemoryImage image;
    const read_result_t read = readText(image,
                                        "// a comment\n"
                                        "/* a comment\n over lines */ @10 0102 3_4\n"
                                        "AbCd /* inline */ 5 // to the end @99\n"
                                        "@0 ffff\n",
                                        file_format_t::VERILOG, 16);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0, {0xFF, 0xFF}},
                                                           {0x20, {0x01, 0x02, 0x00, 0x34, 0xAB, 0xCD, 0x00, 0x05}}}));
    ASSERT_TRUE(readText(image, "01 02 03", file_format_t::VERILOG));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0, {1, 2, 3}}})) << "words before any address start at 0";
}

TEST(Verilog, BadInputNamesTheLine)
{
    const file_format_t F = file_format_t::VERILOG;
    EXPECT_EQ(failureOf("@0\n1FF\n", F, 8), "2: a word wider than 8 bits");
    MemoryImage image;
    EXPECT_TRUE(readText(image, "@0\n0000000000FF\n", F, 8)) << "leading zeros do not widen a word";
    EXPECT_EQ(failureOf("@0\n12345\n", F, 16), "2: a word wider than 16 bits");
    EXPECT_EQ(failureOf("@0\n12 x3\n", F, 8), "2: 'x' is not a hex digit");
    EXPECT_EQ(failureOf("@\n", F, 8), "1: an address is '@' and hex digits");
    EXPECT_EQ(failureOf("@4000000000\n", F, 8), "1: word address 0x4000000000 lies outside the 32-bit address space");
    EXPECT_EQ(failureOf("@40000000 01\n", F, 32), "1: word address 0x40000000 lies outside the 32-bit address space");
    EXPECT_EQ(failureOf("@3FFFFFFF 01 02\n", F, 32), "1: the data runs past address 0xFFFFFFFF");
    EXPECT_EQ(failureOf("01\n/* open\n02\n", F, 8), "2: a /* comment that is never closed");
    EXPECT_EQ(failureOf("01", F, 12), "0: word width 12 is not 8, 16, 32 or 64 bits");
}

// --- MIF -------------------------------------------------------------------------

TEST(Mif, WrittenWithTheHeaderAndOneEntryPerLine)
{
    EXPECT_EQ(written(imageOf({{0x1000, countingBytes(6, 1)}, {0x2000, {0xAA}}}), as(file_format_t::MIF, 16)),
              "-- written by hexblocks\n"
              "WIDTH = 16;\n"
              "DEPTH = 4097;\n"
              "ADDRESS_RADIX = HEX;\n"
              "DATA_RADIX = HEX;\n"
              "CONTENT BEGIN\n"
              "00000800 : 0102 0304 0506;\n"
              "00001000 : AAFF;\n"
              "END;\n");
    EXPECT_EQ(written(imageOf({{0, countingBytes(17)}}), as(file_format_t::MIF, 8)),
              "-- written by hexblocks\nWIDTH = 8;\nDEPTH = 17;\nADDRESS_RADIX = HEX;\nDATA_RADIX = HEX;\n"
              "CONTENT BEGIN\n"
              "00000000 : 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F;\n"
              "00000010 : 10;\n"
              "END;\n");
}

TEST(Mif, ReadsEveryNotationRadixAndComment)
{
    MemoryImage image;
    const read_result_t read = readText(image,
                                        "% a comment\n over lines %\n"
                                        "depth = 32; -- words\n"
                                        "WIDTH=12;\n"
                                        "ADDRESS_RADIX = UNS;\n"
                                        "DATA_RADIX = HEX;\n"
                                        "CONTENT BEGIN\n"
                                        "  2 : ABC;\n"
                                        "  [4..7] : 1 2;\n"
                                        "  10 : 3 4 5;\n"
                                        "END;\n",
                                        file_format_t::MIF);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image),
              std::vector<SegmentView>({{4, {0x0A, 0xBC}},
                                        {8, {0, 1, 0, 2, 0, 1, 0, 2}},
                                        {20, {0, 3, 0, 4, 0, 5}}}))
        << "12-bit words take two bytes, most significant first";
    ASSERT_TRUE(readText(image,
                         "WIDTH=8; DEPTH=4; DATA_RADIX=DEC; CONTENT BEGIN 0 : -1 127; 2 : -128; END;",
                         file_format_t::MIF));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0, {0xFF, 0x7F, 0x80}}}));
    ASSERT_TRUE(readText(image, "WIDTH=8; DEPTH=4; DATA_RADIX=BIN; ADDRESS_RADIX=OCT; CONTENT BEGIN 3 : 101; END;",
                         file_format_t::MIF));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{3, {5}}}));
}

TEST(Mif, BadInputNamesTheLine)
{
    const file_format_t F = file_format_t::MIF;
    const std::string header = "WIDTH=8;\nDEPTH=16;\nCONTENT BEGIN\n";
    EXPECT_EQ(failureOf(header + "0 : 100;\nEND;\n", F), "4: '100' is not a word of 8 bits in the data radix");
    EXPECT_EQ(failureOf(header + "0 : 1G;\nEND;\n", F), "4: '1G' is not a word of 8 bits in the data radix");
    EXPECT_EQ(failureOf(header + "10 : 1;\nEND;\n", F), "4: address 10 is not below the depth 16");
    EXPECT_EQ(failureOf(header + "F : 1 2;\nEND;\n", F), "4: the entry's words run past the depth 16");
    EXPECT_EQ(failureOf(header + "0 : 1\nEND;\n", F), "5: '" "END' is not a word of 8 bits in the data radix");
    EXPECT_EQ(failureOf(header + "0 1;\nEND;\n", F), "4: expected ':' after the address, found '1'");
    EXPECT_EQ(failureOf(header + "[5..2] : 1;\nEND;\n", F), "4: an address range that ends before it starts");
    EXPECT_EQ(failureOf(header + "0 : 1;\n", F), "5: the file ends before END");
    EXPECT_EQ(failureOf("DEPTH=16;\nCONTENT BEGIN\nEND;\n", F), "2: the header gives no WIDTH");
    EXPECT_EQ(failureOf("WIDTH=8;\nSIZE=3;\n", F), "2: unknown header keyword SIZE");
    EXPECT_EQ(failureOf("WIDTH=65;\n", F), "1: WIDTH 65 is more than 64 bits");
    EXPECT_EQ(failureOf("WIDTH=8;\nDATA_RADIX=DECIMAL;\n", F), "2: a radix is HEX, DEC, UNS, BIN or OCT");
    EXPECT_EQ(failureOf("WIDTH=8;\n% open\nDEPTH=8;\n", F), "2: a % comment that is never closed");
    EXPECT_EQ(failureOf(header + "0 : 1;\nEND;\nmore\n", F), "6: text after END");
    // A range may give 16 MiB (or 256 bytes for each of the file), not gigabytes.
    EXPECT_EQ(failureOf("WIDTH=8;\nCONTENT BEGIN\n[0..FFFFFF] : 1;\n[1000000..1FFFFFF] : 2;\nEND;\n", F),
              "4: address ranges give more than 16777216 bytes, more than a file of this size can mean");
    MemoryImage image;
    ASSERT_TRUE(readText(image, "WIDTH=8;\nCONTENT BEGIN\n[0..FFFFFF] : 1;\nEND;\n", F));
    EXPECT_EQ(image.dataSize(), 16u << 20);
}

// --- INHX16 ----------------------------------------------------------------------

TEST(IntelHex16, WordAddressesWordCountsAndTheLowByteFirstInMemory)
{
    // Bytes 01 02 03 at 0x2468 are the words 0x0201 and 0xFF03 (the fill
    // byte above 03) at word address 0x1234.
    EXPECT_EQ(written(imageOf({{0x2468, {0x01, 0x02, 0x03}}}), as(file_format_t::INTEL_HEX_16)),
              ":021234000201FF03B3\n:00000001FF\n");
    MemoryImage image;
    ASSERT_TRUE(readText(image, ":021234000201FF03B3\n:00000001FF\n", file_format_t::INTEL_HEX_16));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x2468, {0x01, 0x02, 0x03, 0xFF}}}));
    // From 128 KiB on, an extended address record gives the upper word
    // address, its bytes in the same reverse order: 1 is "0100".
    MemoryImage high = imageOf({{0x20000, {0xAA, 0xBB}}});
    high.setStartAddress(start_address_t{5, 0x12345678});
    const std::string text = ":010000040100FA\n:01000000BBAA9A\n:020000051A093C2B6F\n:00000001FF\n";
    EXPECT_EQ(written(high, as(file_format_t::INTEL_HEX_16)), text) << "the start address in words";
    const read_result_t read = readText(image, text, file_format_t::INTEL_HEX_16);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_TRUE(read.warnings.empty());
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x20000, {0xAA, 0xBB}}}));
    EXPECT_EQ(startOf(image), startOf(high));
    high.setStartAddress(start_address_t{5, 0x12345679});
    std::ostringstream out;
    EXPECT_EQ(writeStream(high, out, as(file_format_t::INTEL_HEX_16)).reason,
              "INHX16 holds the start address in words, and 0x12345679 is odd");
}

TEST(IntelHex16, BadInputNamesTheLine)
{
    const file_format_t F = file_format_t::INTEL_HEX_16;
    EXPECT_EQ(failureOf(":0200000001\n", F), "1: word count 2 does not match the length of the line");
    EXPECT_EQ(failureOf(":0100000001020F\n", F), "1: checksum error");
    EXPECT_EQ(failureOf(":01000000010GFD\n", F), "1: character that is not a hex digit");
    EXPECT_EQ(failureOf("01000000\n", F), "1: a record starts with ':'");
    EXPECT_EQ(failureOf(":00000006FA\n", F), "1: unsupported record type 06");
    EXPECT_EQ(failureOf(":0200000400000000FA\n", F), "1: an extended address record holds one word");
    // Word address 0x7FFF0000 + 0xFFFF is byte address 0xFFFFFFFE: one word fits, two do not.
    MemoryImage image;
    ASSERT_TRUE(readText(image, ":01000004FF7F7D\n:01FFFF00000001\n:00000001FF\n", F));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0xFFFFFFFE, {0, 0}}}));
    EXPECT_EQ(failureOf(":01000004FF7F7D\n:02FFFF000000000000\n", F),
              "2: the record's data runs past address 0xFFFFFFFF");
}

TEST(IntelHex16, RecordsOfOneShapeInARowAreEachCheckedAndNamed)
{
    // Eight records of eight words; records with the count and line ending
    // of the one before them are read together, each with every check.
    const file_format_t F = file_format_t::INTEL_HEX_16;
    const std::vector<uint8_t> bytes = countingBytes(128);
    const MemoryImage image = imageOf({{0x1000, bytes}});
    for (const std::string ending : {"\n", "\r\n"}) {
        write_options_t options = as(F);
        options.crlf = ending == "\r\n";
        const std::vector<std::string> lines = splitLines(written(image, options), ending);
        ASSERT_EQ(lines.size(), 9u);
        EXPECT_EQ(lines[3], ":08081800313033323534373639383B3A3D3C3F3E60") << "word 0x0818 holds bytes 0x30 and 0x31";
        MemoryImage back;
        ASSERT_TRUE(readText(back, joinLines(lines, ending), F));
        EXPECT_EQ(segmentsOf(back), std::vector<SegmentView>({{0x1000, bytes}})) << "ending " << ending.size();

        std::vector<std::string> bad = lines;
        bad[3].back() = bad[3].back() == '0' ? '1' : '0';
        EXPECT_EQ(failureOf(joinLines(bad, ending), F), "4: checksum error");
        bad = lines;
        bad[5][20] = 'G';
        EXPECT_EQ(failureOf(joinLines(bad, ending), F), "6: character that is not a hex digit");
        bad = lines;
        bad[6].insert(3, "0");
        EXPECT_EQ(failureOf(joinLines(bad, ending), F), "7: a record is ':' and pairs of hex digits: count, address, "
                                                        "type, data, checksum");

        // Another count and another line ending between them: read as well.
        write_options_t eight = options;
        eight.recordSize = 8;
        const std::vector<std::string> halves = splitLines(
            written(imageOf({{0x1020, std::vector<uint8_t>(bytes.begin() + 0x20, bytes.begin() + 0x30)}}), eight),
            ending);
        ASSERT_EQ(halves.size(), 3u);
        std::vector<std::string> mixed(lines.begin(), lines.begin() + 2);
        mixed.insert(mixed.end(), halves.begin(), halves.begin() + 2);
        mixed.insert(mixed.end(), lines.begin() + 3, lines.end());
        std::string text = joinLines(mixed, ending);
        const std::string other = ending == "\n" ? "\r\n" : "\n";
        text.replace(text.find(ending, text.find(lines[5])), ending.size(), other);
        ASSERT_TRUE(readText(back, text, F));
        EXPECT_EQ(segmentsOf(back), std::vector<SegmentView>({{0x1000, bytes}})) << "ending " << ending.size();

        // A record that reaches back, in a row of its shape, under a policy
        // that refuses other bytes: named by its line.
        std::vector<uint8_t> changed(bytes.begin() + 0x10, bytes.begin() + 0x20);
        changed[5] ^= 0xFF;
        std::vector<std::string> again = lines;
        again.insert(again.begin() + 6, splitLines(written(imageOf({{0x1010, changed}}), options), ending)[0]);
        read_options_t identical = readAs(F);
        identical.overlap = overlap_policy_t::IDENTICAL;
        const std::string overlapping = joinLines(again, ending);
        const read_result_t read = readMemory(back, overlapping.data(), overlapping.size(), identical);
        EXPECT_EQ(read.status, status_t::OVERLAP);
        EXPECT_EQ(read.line, 7u);
        EXPECT_EQ(read.address, 0x1015u);
    }
}

// --- COE and C arrays ------------------------------------------------------------

TEST(Coe, WordsFromTheLowestAddressGapsFilled)
{
    write_options_t options = as(file_format_t::COE, 16);
    options.fill = 0x00;
    EXPECT_EQ(written(imageOf({{0, {0xAB}}, {4, {0x12, 0x34}}, {10, {0x56}}}), options),
              "; written by hexblocks: 6 words of 16 bits from address 0x00000000\n"
              "memory_initialization_radix=16;\n"
              "memory_initialization_vector=\n"
              "AB00,\n0000,\n1234,\n0000,\n0000,\n5600;\n");
    EXPECT_EQ(written(imageOf({{0x08000003, {0x12, 0x34}}}), options),
              "; written by hexblocks: 2 words of 16 bits from address 0x08000002\n"
              "memory_initialization_radix=16;\n"
              "memory_initialization_vector=\n"
              "0012,\n3400;\n");
    EXPECT_EQ(written(MemoryImage(), options),
              "; written by hexblocks: 0 words of 16 bits from address 0x00000000\n"
              "memory_initialization_radix=16;\nmemory_initialization_vector=\n;\n");
}

TEST(CArray, ASegmentArrayAndATableWithTheStartAddress)
{
    MemoryImage image = imageOf({{0x08000000, countingBytes(13)}, {0x20000000, {0xFF}}});
    image.setStartAddress(start_address_t{5, 0x08000101});
    write_options_t options = as(file_format_t::C_ARRAY);
    options.name = "fw";
    EXPECT_EQ(written(image, options),
              "/* written by hexblocks: 2 segments, 14 bytes of data */\n"
              "#ifndef FW_H_INCLUDED\n"
              "#define FW_H_INCLUDED\n\n"
              "#include <stddef.h>\n"
              "#include <stdint.h>\n\n"
              "/* 0x08000000, 13 bytes */\n"
              "static const uint8_t fw_segment_0[13] = {\n"
              "    0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B,\n"
              "    0x0C\n"
              "};\n\n"
              "/* 0x20000000, 1 bytes */\n"
              "static const uint8_t fw_segment_1[1] = {\n"
              "    0xFF\n"
              "};\n\n"
              "struct fw_segment {\n"
              "    uint32_t address;\n"
              "    uint32_t size;\n"
              "    const uint8_t *bytes;\n"
              "};\n\n"
              "#define FW_SEGMENT_COUNT 2u\n"
              "static const struct fw_segment fw_segments[FW_SEGMENT_COUNT] = {\n"
              "    {0x08000000u, 13u, fw_segment_0},\n"
              "    {0x20000000u, 1u, fw_segment_1}\n"
              "};\n\n"
              "/* The start address, as a linear address */\n"
              "#define FW_START_ADDRESS 0x08000101u\n\n"
              "#endif\n");
    options.name = "2fw";
    std::ostringstream out;
    const result_t bad = writeStream(image, out, options);
    EXPECT_EQ(bad.status, status_t::BAD_ARGUMENT);
    EXPECT_EQ(bad.reason, "the name \"2fw\" is not a C identifier");
    EXPECT_EQ(out.str(), "");
}

// --- All of them ------------------------------------------------------------------

struct textkind_t {
    file_format_t format;
    unsigned width;
};
const textkind_t TEXT_KINDS[] = {
    {file_format_t::TI_TXT, 8},  {file_format_t::VERILOG, 8}, {file_format_t::VERILOG, 16},
    {file_format_t::VERILOG, 32}, {file_format_t::VERILOG, 64}, {file_format_t::MIF, 8},
    {file_format_t::MIF, 16},    {file_format_t::MIF, 32},    {file_format_t::MIF, 64},
    {file_format_t::INTEL_HEX_16, 8}};

TEST(TextFormats, RoundTripsOfRandomImages)
{
    std::mt19937 random(2025);
    for (int i = 0; i < 12; ++i) {
        const MemoryImage image = randomImage(random, false);
        for (const textkind_t& k : TEXT_KINDS) {
            const std::string text = written(image, as(k.format, k.width));
            MemoryImage back;
            const read_result_t read = readText(back, text, k.format, k.width);
            ASSERT_TRUE(read) << formatInfo(k.format).name << " " << k.width << ": " << read.line << ": "
                              << read.reason;
            // Words padded with the fill byte; every byte of the image kept.
            for (const segment_t& s : image.segments())
                ASSERT_EQ(back.copyRange(s.address, s.bytes.size()), s.bytes) << formatInfo(k.format).name;
            const size_t word = k.format == file_format_t::INTEL_HEX_16 ? 2 : k.width / 8;
            EXPECT_LE(back.dataSize(), image.dataSize() + 2 * word * image.segments().size());
        }
    }
}

TEST(TextFormats, EveryDigitOfAUsualLineIsChecked)
{
    // The lines of 16 bytes that writers write are decoded at once: a
    // character that is not a hex digit anywhere in one is found, and the
    // line named.
    const MemoryImage image = imageOf({{0x100, countingBytes(64)}});
    for (const textkind_t& k : TEXT_KINDS) {
        const std::vector<std::string> lines = splitLines(written(image, as(k.format, k.width)));
        // The second line of data, which holds the byte 1E, has two after it.
        size_t last = 0;
        while (last < lines.size() && lines[last].find("1E") == std::string::npos)
            ++last;
        ASSERT_LT(last, lines.size());
        const std::string name = std::string(formatInfo(k.format).name) + " " + std::to_string(k.width);
        size_t digits = 0;
        for (size_t at = 0; at < lines[last].size(); ++at) {
            if (!std::isxdigit(static_cast<unsigned char>(lines[last][at])))
                continue;
            std::vector<std::string> bad = lines;
            bad[last][at] = 'G';
            const std::string failure = failureOf(joinLines(bad), k.format, k.width);
            EXPECT_EQ(failure.substr(0, failure.find(':')), std::to_string(last + 1)) << name << " at " << at;
            ++digits;
        }
        EXPECT_GE(digits, 32u) << name;
    }
}

TEST(TextFormats, BadWordWidthsAreRefused)
{
    std::ostringstream out;
    for (file_format_t format : {file_format_t::VERILOG, file_format_t::MIF, file_format_t::COE}) {
        const result_t result = writeStream(TWO_SEGMENTS, out, as(format, 24));
        EXPECT_EQ(result.status, status_t::BAD_ARGUMENT);
        EXPECT_EQ(result.reason, "word width 24 is not 8, 16, 32 or 64 bits");
    }
    write_options_t inhx16 = as(file_format_t::INTEL_HEX_16);
    inhx16.recordSize = 15;
    EXPECT_EQ(writeStream(TWO_SEGMENTS, out, inhx16).reason,
              "record size 15 does not fit INHX16: an even number of bytes, 2 to 254");
    EXPECT_EQ(out.str(), "");
}

TEST(TextFormats, ContentThatFitsTwoFormatsNamesBoth)
{
    const std::string text = "@1000\n01 02\nq\n";
    EXPECT_EQ(recogniseFormats(text.data(), text.size()),
              std::vector<file_format_t>({file_format_t::TI_TXT, file_format_t::VERILOG}));
    EXPECT_EQ(detectFormat(text.data(), text.size()), std::nullopt);
    MemoryImage image;
    const read_result_t read = readMemory(image, text.data(), text.size());
    EXPECT_EQ(read.status, status_t::UNKNOWN_FORMAT);
    EXPECT_EQ(read.reason, "the content could be TI-TXT or Verilog memory file: the format must be given (ti-txt or vmem)");
    EXPECT_EQ(read.candidates, std::vector<file_format_t>({file_format_t::TI_TXT, file_format_t::VERILOG}));
    const std::string verilog = "// memory\n@0 01\n";
    EXPECT_EQ(detectFormat(verilog.data(), verilog.size()), file_format_t::VERILOG);
    const std::string mif = "  DEPTH = 4;\nWIDTH=8;\n";
    EXPECT_EQ(detectFormat(mif.data(), mif.size()), file_format_t::MIF);
    const std::string mifComment = "-- memory\n";
    EXPECT_EQ(detectFormat(mifComment.data(), mifComment.size()), file_format_t::MIF);
    const std::string uf2("UF2\n\x57\x51\x5D\x9E", 8);
    EXPECT_EQ(detectFormat(uf2.data(), uf2.size()), file_format_t::UF2);
    EXPECT_EQ(formatByExtension("fw.uf2"), file_format_t::UF2);
    EXPECT_EQ(formatByExtension("rom.MEM"), file_format_t::VERILOG);
    EXPECT_EQ(formatByExtension("rom.vmem"), file_format_t::VERILOG);
    EXPECT_EQ(formatByExtension("rom.mif"), file_format_t::MIF);
    EXPECT_EQ(formatByExtension("rom.coe"), file_format_t::COE);
    EXPECT_EQ(formatByExtension("image.h"), file_format_t::C_ARRAY);
    EXPECT_EQ(formatByExtension("image.c"), file_format_t::C_ARRAY);
    EXPECT_EQ(formatByExtension("notes.txt"), std::nullopt) << "TI-TXT needs the option";
}

TEST(TextFormats, OnlyWrittenFormatsCannotBeRead)
{
    MemoryImage image;
    const read_result_t read = readText(image, "memory_initialization_radix=16;", file_format_t::COE);
    EXPECT_EQ(read.status, status_t::UNSUPPORTED);
    EXPECT_EQ(read.reason, "images cannot be read from Xilinx COE");
}

TEST(TextFormats, TheLineOfAByteIsFound)
{
    const std::string text = "@1000\n01 02\n03 04\nq\n";
    EXPECT_EQ(findLineInMemory(text.data(), text.size(), 0x1003, readAs(file_format_t::TI_TXT)), 3u);
    const std::string mif = "WIDTH=8;\nCONTENT BEGIN\n0 : 1;\n5 : 2 3;\nEND;\n";
    EXPECT_EQ(findLineInMemory(mif.data(), mif.size(), 6, readAs(file_format_t::MIF)), 4u);
    EXPECT_EQ(findLineInMemory(mif.data(), mif.size(), 0), 3u) << "told from the content";
}
