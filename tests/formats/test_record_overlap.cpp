// Records of one input that give the same bytes, under each overlap policy:
// the default (the first value, with a warning, and a record that starts
// where an earlier one started dropped whole), first, last, identical and
// error, in every record format, with records in order, out of order
// (windows) and placed by sorting; the line, address and earlier line that a
// refusal names; and objcopy, which keeps the last value, as the oracle.
#include "formats.h"
#include "full_format_reader.h"
#include "memory_image.h"
#include "record_scanner.h"
#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/result_print.h"
#include "support/run_process.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

read_result_t readWith(MemoryImage& image, const std::string& text, std::optional<overlap_policy_t> overlap,
                       file_format_t format = file_format_t::INTEL_HEX)
{
    read_options_t options = readAs(format);
    options.overlap = overlap;
    return readMemory(image, text.data(), text.size(), options);
}

// 01 02 03 04 at 0x100; 09 at 0x200; 03 07 at 0x102 (07 differs); 01 02 at
// 0x100 again (a repeated start, equal bytes).
const std::string OVERLAPPING = joinLines({dataRecord(0x100, {1, 2, 3, 4}), dataRecord(0x200, {9}),
                                           dataRecord(0x102, {3, 7}), dataRecord(0x100, {1, 2}), EOF_RECORD});

} // namespace

TEST(RecordOverlap, TheDefaultKeepsTheFirstValueWithAWarning)
{
    MemoryImage image;
    const read_result_t read = readWith(image, OVERLAPPING, std::nullopt);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 2, 3, 4}}, {0x200, {9}}}));
    ASSERT_EQ(read.warnings.size(), 1u);
    EXPECT_EQ(read.warnings[0].line, 3u);
    EXPECT_EQ(read.warnings[0].message, "2 bytes given by more than one record; the first value of each is kept");
}

TEST(RecordOverlap, FirstKeepsTheFirstValueSilently)
{
    MemoryImage image;
    const read_result_t read = readWith(image, OVERLAPPING, overlap_policy_t::FIRST);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 2, 3, 4}}, {0x200, {9}}}));
    EXPECT_TRUE(read.warnings.empty());
}

TEST(RecordOverlap, LastTakesTheLastValue)
{
    MemoryImage image;
    const std::string text = joinLines({dataRecord(0x100, {1, 2, 3, 4}), dataRecord(0x102, {3, 7}),
                                        dataRecord(0x100, {5, 6}), EOF_RECORD});
    const read_result_t read = readWith(image, text, overlap_policy_t::LAST);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {5, 6, 3, 7}}}))
        << "a repeated start is not dropped: its bytes win too";
    EXPECT_TRUE(read.warnings.empty());
}

TEST(RecordOverlap, IdenticalAcceptsEqualBytesAndNamesBothLinesOfADifference)
{
    MemoryImage image = imageOf({{7, {7}}});
    const read_result_t read = readWith(image, OVERLAPPING, overlap_policy_t::IDENTICAL);
    EXPECT_EQ(read.status, status_t::OVERLAP);
    EXPECT_EQ(read.line, 3u);
    EXPECT_EQ(read.address, 0x103u);
    EXPECT_EQ(read.reason, "this record gives 0x07 at 0x00000103, where line 1 gave 0x04");
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{7, {7}}})) << "a failed read leaves the image";
    const std::string equal = joinLines({dataRecord(0x100, {1, 2, 3}), dataRecord(0x101, {2, 3, 4}),
                                         dataRecord(0x100, {1}), EOF_RECORD});
    const read_result_t accepted = readWith(image, equal, overlap_policy_t::IDENTICAL);
    ASSERT_TRUE(accepted) << accepted.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 2, 3, 4}}}));
    EXPECT_TRUE(accepted.warnings.empty());
}

TEST(RecordOverlap, ErrorNamesTheFirstByteGivenAgainAndBothLines)
{
    MemoryImage image;
    const read_result_t read = readWith(image, OVERLAPPING, overlap_policy_t::ERROR);
    EXPECT_EQ(read.status, status_t::OVERLAP);
    EXPECT_EQ(read.line, 3u);
    EXPECT_EQ(read.address, 0x102u);
    EXPECT_EQ(read.reason, "this record gives 0x00000102, which line 1 gave");
    // A record that repeats an earlier start is refused too.
    const std::string repeated = joinLines({dataRecord(0x100, {1}), dataRecord(0x200, {2}), dataRecord(0x100, {1}),
                                            EOF_RECORD});
    const read_result_t again = readWith(image, repeated, overlap_policy_t::ERROR);
    EXPECT_EQ(again.line, 3u);
    EXPECT_EQ(again.reason, "this record gives 0x00000100, which line 1 gave");
    // Records that only touch are not an overlap.
    const std::string touching = joinLines({dataRecord(0x102, {3}), dataRecord(0x100, {1, 2}), EOF_RECORD});
    ASSERT_TRUE(readWith(image, touching, overlap_policy_t::ERROR));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 2, 3}}}));
}

TEST(RecordOverlap, AcrossRegionsAndPastAWindowBoundary)
{
    // A record that crosses from one 64 KiB region into the next (segment
    // addressing wraps; linear records are split here by an extended
    // address) and one that gives the same bytes later from another region.
    const std::string text = joinLines({linearBaseRecord(0x0001), dataRecord(0xFFFE, {1, 2}),
                                        linearBaseRecord(0x0002), dataRecord(0x0000, {3, 4}),
                                        linearBaseRecord(0x0001), dataRecord(0xFFFF, {9}), EOF_RECORD});
    MemoryImage image;
    read_result_t read = readWith(image, text, overlap_policy_t::LAST);
    ASSERT_TRUE(read) << read.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1FFFE, {1, 9, 3, 4}}}));
    read = readWith(image, text, overlap_policy_t::ERROR);
    EXPECT_EQ(read.line, 6u);
    EXPECT_EQ(read.reason, "this record gives 0x0001FFFF, which line 2 gave");
}

TEST(RecordOverlap, TheSortingPlacementFollowsThePoliciesToo)
{
    for (const overlap_policy_t policy :
         {overlap_policy_t::FIRST, overlap_policy_t::LAST, overlap_policy_t::IDENTICAL, overlap_policy_t::ERROR}) {
        MemoryImage windows, sorted;
        detail::MemoryText a(OVERLAPPING.data(), OVERLAPPING.size());
        detail::MemoryText b(OVERLAPPING.data(), OVERLAPPING.size());
        const detail::fullread_t byWindows =
            detail::readFullFormat(a, windows, detail::assembly_t(detail::placement_t::WINDOWS, policy));
        const detail::fullread_t bySorting =
            detail::readFullFormat(b, sorted, detail::assembly_t(detail::placement_t::SORTING, policy));
        EXPECT_TRUE(bySorting.sorted);
        EXPECT_EQ(bySorting.status, byWindows.status) << static_cast<int>(policy);
        EXPECT_EQ(bySorting.line, byWindows.line) << static_cast<int>(policy);
        EXPECT_EQ(bySorting.reason, byWindows.reason) << static_cast<int>(policy);
        EXPECT_EQ(segmentsOf(sorted), segmentsOf(windows)) << static_cast<int>(policy);
    }
}

TEST(RecordOverlap, EveryRecordFormatFollowsThePolicy)
{
    struct case_t {
        file_format_t format;
        std::string text;
        size_t line;
    };
    const case_t cases[] = {
        {file_format_t::SRECORD,
         joinLines({srecordLine(1, 2, 0x100, {1, 2, 3, 4}), srecordLine(1, 2, 0x102, {3, 7}), "S9030000FC"}), 2},
        {file_format_t::TI_TXT, "@100\n01 02 03 04\n@102\n03 07\nq\n", 4},
        {file_format_t::VERILOG, "@100 01 02 03 04\n@102\n03 07\n", 3},
        {file_format_t::MIF, "WIDTH=8;\nCONTENT BEGIN\n100 : 1 2 3 4;\n102 : 3 7;\nEND;\n", 4},
        {file_format_t::INTEL_HEX_16, ":020080000201040374\n:01008100070374\n:00000001FF\n", 2}};
    for (const case_t& c : cases) {
        const std::string name = formatInfo(c.format).name;
        MemoryImage image;
        read_result_t read = readWith(image, c.text, overlap_policy_t::LAST, c.format);
        ASSERT_TRUE(read) << name << ": " << read.reason;
        EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 2, 3, 7}}})) << name;
        read = readWith(image, c.text, std::nullopt, c.format);
        ASSERT_TRUE(read) << name << ": " << read.reason;
        EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 2, 3, 4}}})) << name;
        EXPECT_EQ(read.warnings.size(), 1u) << name;
        read = readWith(image, c.text, overlap_policy_t::IDENTICAL, c.format);
        EXPECT_EQ(read.status, status_t::OVERLAP) << name;
        EXPECT_EQ(read.line, c.line) << name;
        EXPECT_EQ(read.address, 0x103u) << name;
    }
}

TEST(RecordOverlap, Uf2BlocksAreNamedByNumber)
{
    auto block = [](uint32_t address, std::vector<uint8_t> payload, uint32_t number) {
        std::string b(512, '\0');
        auto put = [&b](size_t at, uint32_t v) {
            for (int i = 0; i < 4; ++i)
                b[at + static_cast<size_t>(i)] = static_cast<char>(v >> (8 * i));
        };
        put(0, 0x0A324655);
        put(4, 0x9E5D5157);
        put(12, address);
        put(16, static_cast<uint32_t>(payload.size()));
        put(20, number);
        put(24, 2);
        for (size_t i = 0; i < payload.size(); ++i)
            b[32 + i] = static_cast<char>(payload[i]);
        put(508, 0x0AB16F30);
        return b;
    };
    const std::string file = block(0x100, {1, 2, 3, 4}, 0) + block(0x102, {3, 7}, 1);
    MemoryImage image;
    const read_result_t read = readWith(image, file, overlap_policy_t::ERROR, file_format_t::UF2);
    EXPECT_EQ(read.status, status_t::OVERLAP);
    EXPECT_EQ(read.line, 0u);
    EXPECT_EQ(read.reason, "block 1 gives 0x00000102, which block 0 gave");
    ASSERT_TRUE(readWith(image, file, overlap_policy_t::LAST, file_format_t::UF2));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x100, {1, 2, 3, 7}}}));
}

// objcopy keeps the last value of bytes that records give again: files of
// random records, many overlapping, in any order, read with LAST give
// objcopy's image. (Without --gap-fill: objcopy pads each of its sections up
// to the next one, and where sections overlap the padding lands on data.)
TEST(RecordOverlap, LastGivesTheImageOfObjcopy)
{
    std::mt19937 random(2511);
    TempDir dir;
    for (int c = 0; c < 12; ++c) {
        std::vector<std::string> lines;
        uint16_t base = static_cast<uint16_t>(random() % 3);
        lines.push_back(linearBaseRecord(base));
        for (int r = 0; r < 60; ++r) {
            if (random() % 10 == 0) {
                base = static_cast<uint16_t>(random() % 3);
                lines.push_back(linearBaseRecord(base));
            }
            std::vector<uint8_t> data(1 + random() % 32);
            for (uint8_t& b : data)
                b = static_cast<uint8_t>(random());
            lines.push_back(dataRecord(static_cast<uint16_t>(random() % 0x200), data));
        }
        lines.push_back(EOF_RECORD);
        const std::string hex = dir.write("overlaps.hex", joinLines(lines));
        const ProcessResult objcopy =
            runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", hex, dir.file("objcopy.bin")});
        ASSERT_EQ(objcopy.exitCode, 0) << objcopy.err;
        MemoryImage image;
        read_options_t options;
        options.overlap = overlap_policy_t::LAST;
        const read_result_t read = readFile(image, hex.c_str(), options);
        ASSERT_TRUE(read) << read.reason;
        EXPECT_EQ(image.copyRange(image.lowestAddress(), image.span(), 0x00), readFileBytes(dir.file("objcopy.bin")))
            << "case " << c;
    }
}
