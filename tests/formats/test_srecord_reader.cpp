// Reading S-records into a MemoryImage: every record type, the header, the
// counts, the start address, white space, order and overlaps, and each kind
// of bad line with its number and reason.
#include "formats.h"
#include "memory_image.h"
#include "srecord_reader.h"
#include "support/capture.h"
#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {


read_result_t readSrecords(MemoryImage& image, const std::string& text)
{
    read_options_t options;
    options.detect = false;
    options.format = file_format_t::SRECORD;
    return readMemory(image, text.data(), text.size(), options);
}

// "LINE: REASON" of a failed read, or "ok".
std::string failureOf(const std::string& text)
{
    MemoryImage image;
    const read_result_t result = readSrecords(image, text);
    if (result)
        return "ok";
    return std::to_string(result.line) + ": " + result.reason;
}

} // namespace

TEST(SrecordReader, DataOfEveryAddressSize)
{
    MemoryImage image;
    const read_result_t result = readSrecords(image, "S0030000FC\n"
                                                                 "S1061000010203E3\n"
                                                                 "S207010000010203F1\n"
                                                                 "S30808000000010203E9\n"
                                                                 "S5030003F9\n"
                                                                 "S70508000131C0\n");
    ASSERT_TRUE(result) << result.reason;
    EXPECT_TRUE(result.warnings.empty());
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1000, {1, 2, 3}}, {0x10000, {1, 2, 3}},
                                                           {0x08000000, {1, 2, 3}}}));
    EXPECT_EQ(startOf(image), "type 5 value " + std::to_string(0x08000131));
    EXPECT_EQ(image.header(), "");
}

TEST(SrecordReader, TheFirstHeaderIsKept)
{
    MemoryImage image;
    ASSERT_TRUE(readSrecords(image, "S00600004844521B\nS0030000FC\nS9030000FC\n"));
    EXPECT_EQ(image.header(), "HDR");
    EXPECT_TRUE(image.empty());
}

TEST(SrecordReader, AStartAddressOf0MeansNone)
{
    MemoryImage image;
    ASSERT_TRUE(readSrecords(image, "S1061000010203E3\nS9030000FC\n"));
    EXPECT_FALSE(image.hasStartAddress());
    ASSERT_TRUE(readSrecords(image, "S1061000010203E3\nS804000000FB\n"));
    EXPECT_FALSE(image.hasStartAddress());
    ASSERT_TRUE(readSrecords(image, "S8040179B8C9\n"));
    EXPECT_EQ(startOf(image), "type 5 value " + std::to_string(0x179B8));
}

TEST(SrecordReader, TheTerminationRecordEndsTheFile)
{
    MemoryImage image;
    ASSERT_TRUE(readSrecords(image, "S1061000010203E3\nS9030000FC\nnot a record\n"));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1000, {1, 2, 3}}}));
}

TEST(SrecordReader, AMissingTerminationRecordIsAWarning)
{
    MemoryImage image;
    const read_result_t result = readSrecords(image, "S1061000010203E3\n");
    ASSERT_TRUE(result);
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_EQ(result.warnings[0].line, 0u);
    EXPECT_EQ(result.warnings[0].message, "end of file reached without a termination record (S7, S8 or S9)");
}

TEST(SrecordReader, WhiteSpaceAndBlankLinesAndCrLf)
{
    MemoryImage image;
    const read_result_t result = readSrecords(image, "\r\n  S1061000010203E3\t\r\n\nS9030000FC");
    ASSERT_TRUE(result) << result.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1000, {1, 2, 3}}}));
}

TEST(SrecordReader, RecordsInAnyOrderAndOverlapsKeepTheFirstValue)
{
    MemoryImage image;
    const read_result_t result =
        readSrecords(image, joinLines({srecordLine(1, 2, 0x1002, {0xAA, 0xBB}), srecordLine(1, 2, 0x1000, {1, 2, 3}),
                                       "S9030000FC"}));
    ASSERT_TRUE(result) << result.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1000, {1, 2, 0xAA, 0xBB}}}));
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_EQ(result.warnings[0].line, 2u);
    EXPECT_EQ(result.warnings[0].message, "1 bytes given by more than one record; the first value of each is kept");
}

TEST(SrecordReader, CountRecordsMustMatchTheDataRecordsBeforeThem)
{
    EXPECT_EQ(failureOf("S1061000010203E3\nS5030001FB\nS9030000FC\n"), "ok");
    EXPECT_EQ(failureOf("S1061000010203E3\nS5030002FA\nS9030000FC\n"),
              "2: record count 2 does not match the 1 data records before it");
    EXPECT_EQ(failureOf("S1061000010203E3\nS604000002F9\n"),
              "2: record count 2 does not match the 1 data records before it");
}

TEST(SrecordReader, BadLinesWithTheirNumbers)
{
    EXPECT_EQ(failureOf("S0030000FC\nS1061000010203E4\n"), "2: checksum error");
    EXPECT_EQ(failureOf("S1061000010203\n"), "1: byte count 6 does not match the length of the line");
    EXPECT_EQ(failureOf("S106100001020XE3\n"), "1: character that is not a hex digit");
    EXPECT_EQ(failureOf("S1061000010203E\n"), "1: odd number of hex digits");
    EXPECT_EQ(failureOf("\n:00000001FF\n"), "2: an S-record must start with 'S'");
    EXPECT_EQ(failureOf("SX030000FC\n"), "1: 'S' must be followed by the record type, a digit");
    EXPECT_EQ(failureOf("S1\n"), "1: byte count missing");
    EXPECT_EQ(failureOf("S304000000FB\n"), "1: record too short for an S3 record");
    EXPECT_EQ(failureOf("S4030000FC\n"), "1: unsupported record type S4");
    EXPECT_EQ(failureOf("S5040000AA51\n"), "1: a count record holds no data");
    EXPECT_EQ(failureOf("S9040000AA51\n"), "1: a termination record holds no data");
    EXPECT_EQ(failureOf(srecordLine(3, 4, 0xFFFFFFFF, {1, 2})), "1: the record's data runs past address 0xFFFFFFFF");
}

TEST(SrecordReader, DataRightUpTo0xFFFFFFFF)
{
    MemoryImage image;
    ASSERT_TRUE(readSrecords(image, srecordLine(3, 4, 0xFFFFFFFF, {1})));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0xFFFFFFFF, {1}}}));
}

TEST(SrecordReader, AFailedReadLeavesTheImageAsItWas)
{
    MemoryImage image = imageOf({{5, {5}}});
    ASSERT_TRUE(image.setHeader("keep"));
    EXPECT_FALSE(readSrecords(image, "S00600004844521B\nS1061000010203E4\n"));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{5, {5}}}));
    EXPECT_EQ(image.header(), "keep");
}

TEST(SrecordReader, WindowsAndSortingGiveTheSameImage)
{
    // Records that jump between many regions, so that the windows give up.
    std::string text;
    std::set<uint32_t> starts; // a record that repeats an earlier one's address is dropped
    for (unsigned i = 0; i < 3000; ++i) {
        const unsigned region = (i * 7919) % 2000;
        const uint32_t address = region << 16 | (i % 16) * 16;
        starts.insert(address);
        text += srecordLine(3, 4, address, {static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8), 0x5A}) + "\n";
    }
    MemoryImage byWindows, bySorting;
    hexblocks::detail::MemoryText first(text.data(), text.size()), second(text.data(), text.size());
    const hexblocks::detail::fullread_t a = hexblocks::detail::readSrecords(first, byWindows);
    const hexblocks::detail::fullread_t b =
        hexblocks::detail::readSrecords(second, bySorting, hexblocks::detail::placement_t::SORTING);
    ASSERT_EQ(a.status, hexblocks::detail::fullread_t::status_t::OK) << a.reason;
    ASSERT_EQ(b.status, hexblocks::detail::fullread_t::status_t::OK) << b.reason;
    EXPECT_TRUE(a.sorted) << "the windows should have given up on this order";
    EXPECT_EQ(segmentsOf(byWindows), segmentsOf(bySorting));
    EXPECT_EQ(byWindows.dataSize(), starts.size() * 3);
}

TEST(SrecordReader, ReadFileTellsTheFormatAndReadsAPipe)
{
    TempDir dir;
    const std::string text = "S00600004844521B\nS1061000010203E3\nS9031000EC\n";
    MemoryImage image;
    const read_result_t fromFile = readFile(image, dir.write("app.s19", text).c_str());
    ASSERT_TRUE(fromFile) << fromFile.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1000, {1, 2, 3}}}));
    EXPECT_EQ(image.header(), "HDR");
    EXPECT_EQ(startOf(image), "type 5 value 4096");
    FifoFile pipe(dir, "pipe", text);
    MemoryImage fromPipe;
    ASSERT_TRUE(readFile(fromPipe, pipe.path().c_str()));
    EXPECT_EQ(segmentsOf(fromPipe), segmentsOf(image));
}

TEST(SrecordReader, ReadingPrintsNothing)
{
    const CapturedOutput output = captureOutput([] {
        MemoryImage image;
        readSrecords(image, "S1061000010203E4\n");
        readSrecords(image, "S1061000010203E3\n");
    });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}
