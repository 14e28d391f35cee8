// loadFullFormat(): the whole Intel HEX format, blocks by full 32-bit
// address, start addresses; and the line numbers of failed loads in both
// readers.
#include "intelhex.h"
#include "support/block_view.h"
#include "support/capture.h"
#include "support/hex_text.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <tuple>
#include <string>
#include <vector>

namespace {

std::string segmentRecord(uint16_t segment)
{
    return hexRecord(0x02, 0, {static_cast<uint8_t>(segment >> 8), static_cast<uint8_t>(segment)});
}

class FullFormat : public ::testing::Test {
protected:
    bool load(const std::string& text, bool oneBlock = false)
    {
        IntelHexFile::fulloptions_t options;
        options.oneBlock = oneBlock;
        return loadWith(text, options);
    }

    bool loadWith(const std::string& text, const IntelHexFile::fulloptions_t& options)
    {
        const std::string path = dir.write("in" + std::to_string(++files) + ".hex", text);
        bool ok = false;
        io = captureOutput([&] { ok = image.loadFullFormat(path.c_str(), options); });
        return ok;
    }

    TempDir dir;
    IntelHexFile image;
    CapturedOutput io;
    int files = 0;
};

const std::string CHECKSUM_LINE = ":0300300002337A1F";

} // namespace

TEST_F(FullFormat, DataAndEndRecords)
{
    ASSERT_TRUE(load(joinLines({":0300300002337A1E", ":04003300AABBCCDDBB", EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x30, {0x02, 0x33, 0x7A, 0xAA, 0xBB, 0xCC, 0xDD}}}));
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "");
    EXPECT_FALSE(image.hasStartAddress());
    EXPECT_EQ(image.getErrorLine(), 0u);
    EXPECT_EQ(image.getErrorReason(), "");
}

TEST_F(FullFormat, AnyEndRecordEndsTheFile)
{
    const std::string data = dataRecord(0x10, {1, 2});
    for (const std::string& end : {std::string(":00000001FF"), std::string(":00000001ff"), std::string("  :00000001FF \t"),
                                   std::string(":00000001FF\r"), std::string(":00000001ff\r\r")}) {
        image.clear();
        ASSERT_TRUE(load(data + "\n" + end + "\n" + "garbage that is never read\n:0300300002337A1F\n")) << end;
        EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x10, {1, 2}}})) << end;
        EXPECT_EQ(io.err, "") << end;
        EXPECT_EQ(io.out, "") << end;
    }
}

TEST_F(FullFormat, EndRecordWithDataStillEnds)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0, {1}), hexRecord(0x01, 0, {0x12}), dataRecord(8, {2})})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, {1}}}));
}

TEST_F(FullFormat, BlankLinesAndWhiteSpaceAreSkipped)
{
    ASSERT_TRUE(load("\n  \n\t" + dataRecord(0, {1}) + " \r\n\r\n\n" + dataRecord(1, {2}) + "\r\n" + EOF_RECORD + "\r\n"));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, {1, 2}}}));
    EXPECT_EQ(io.err, "");
}

TEST_F(FullFormat, MissingEndRecordLoadsWithOneWarning)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0, {1}), dataRecord(1, {2})})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, {1, 2}}}));
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "#WARNING: end of file reached without EoF-record.\n");
    ASSERT_TRUE(load(dataRecord(0x20, {3})));
    EXPECT_EQ(io.err, "#WARNING: end of file reached without EoF-record.\n");
    ASSERT_TRUE(load(""));
    EXPECT_EQ(io.err, "#WARNING: end of file reached without EoF-record.\n");
}

TEST_F(FullFormat, LinearBaseAndBlocksAcross64KiB)
{
    ASSERT_TRUE(load(joinLines({linearBaseRecord(0x0800), dataRecord(0xFFF0, countingBytes(16)),
                                linearBaseRecord(0x0801), dataRecord(0x0000, countingBytes(16, 16)), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x0800FFF0, countingBytes(32)}}));
    EXPECT_EQ(image[0].getLinearBase(), 0x0800);
    EXPECT_EQ(image[0].getStartAddress(), 0xFFF0);
    EXPECT_EQ(image[0].getSize(), 32u);
}

TEST_F(FullFormat, LinearRecordRunsOnPast64KiB)
{
    ASSERT_TRUE(load(joinLines({linearBaseRecord(0x0001), dataRecord(0xFFF8, countingBytes(16)), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x0001FFF8, countingBytes(16)}}));
}

TEST_F(FullFormat, LinearAddressesWrapAt4GiB)
{
    ASSERT_TRUE(load(joinLines({linearBaseRecord(0xFFFF), dataRecord(0xFFF8, countingBytes(16)), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x00000000, countingBytes(8, 8)}, {0xFFFFFFF8, countingBytes(8)}}));
}

TEST_F(FullFormat, SegmentBaseIsSixteenTimesTheValue)
{
    ASSERT_TRUE(load(joinLines({segmentRecord(0x1000), dataRecord(0x0010, {1, 2, 3}), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x10010, {1, 2, 3}}}));
}

TEST_F(FullFormat, SegmentOffsetsWrapAt64KiB)
{
    // Bytes 0..7 at 0x1FFF8.., bytes 8..15 wrap to the segment's start 0x10000.
    ASSERT_TRUE(load(joinLines({segmentRecord(0x1000), dataRecord(0xFFF8, countingBytes(16)), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x10000, countingBytes(8, 8)}, {0x1FFF8, countingBytes(8)}}));
}

TEST_F(FullFormat, SegmentAndLinearRecordsReplaceEachOther)
{
    ASSERT_TRUE(load(joinLines({segmentRecord(0x1000), dataRecord(0x0000, {1}), linearBaseRecord(0x0002),
                                dataRecord(0x0000, {2}), segmentRecord(0x0001), dataRecord(0x0000, {3}), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x00010, {3}}, {0x10000, {1}}, {0x20000, {2}}}));
}

TEST_F(FullFormat, StartLinearAddress)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0, {1}), hexRecord(0x05, 0, {0x08, 0x00, 0x01, 0x31}), EOF_RECORD})));
    EXPECT_TRUE(image.hasStartAddress());
    EXPECT_EQ(image.getStartAddressType(), 5);
    EXPECT_EQ(image.getStartAddressValue(), 0x08000131u);
    EXPECT_EQ(io.err, "");
}

TEST_F(FullFormat, StartSegmentAddress)
{
    ASSERT_TRUE(load(joinLines({hexRecord(0x03, 0, {0x12, 0x34, 0x56, 0x78}), EOF_RECORD})));
    EXPECT_TRUE(image.hasStartAddress());
    EXPECT_EQ(image.getStartAddressType(), 3);
    EXPECT_EQ(image.getStartAddressValue(), 0x12345678u);
    EXPECT_EQ(image.getBlockCount(), 0u);
}

TEST_F(FullFormat, SecondDifferentStartAddressIsIgnoredWithAWarning)
{
    const std::string first = hexRecord(0x05, 0, {0, 0, 0, 1});
    ASSERT_TRUE(load(joinLines({first, first, hexRecord(0x05, 0, {0, 0, 0, 2}), EOF_RECORD})));
    EXPECT_EQ(image.getStartAddressValue(), 1u);
    EXPECT_EQ(io.err, "#WARNING: a second, different start address in line 3 is ignored.\n");
}

TEST_F(FullFormat, StartAddressSurvivesCopiesAndIsClearedByClear)
{
    ASSERT_TRUE(load(joinLines({hexRecord(0x05, 0, {0, 0, 0x10, 0}), EOF_RECORD})));
    IntelHexFile copy(image);
    EXPECT_EQ(copy.getStartAddressValue(), 0x1000u);
    IntelHexFile assigned;
    assigned = image;
    EXPECT_EQ(assigned.getStartAddressType(), 5);
    image.clear();
    EXPECT_FALSE(image.hasStartAddress());
    EXPECT_EQ(image.getStartAddressType(), 0);
    EXPECT_EQ(image.getStartAddressValue(), 0u);
}

TEST_F(FullFormat, StrictLoadIgnoresNoStartAddressButRejectsTheRecord)
{
    const std::string path = dir.write("start.hex", joinLines({hexRecord(0x05, 0, {0, 0, 0, 1}), EOF_RECORD}));
    const CapturedOutput out = captureOutput([&] { EXPECT_FALSE(image.load(path.c_str(), false)); });
    EXPECT_EQ(out.err, "#ERROR: unsupported record type found (5)\n");
    EXPECT_FALSE(image.hasStartAddress());
}

TEST_F(FullFormat, OtherRecordTypesAreUnsupported)
{
    for (uint8_t type : {0x06, 0x0A, 0x0B, 0x0C, 0x0D, 0xFF}) {
        const std::string record = hexRecord(type, 0, {0x99, 0x01});
        EXPECT_FALSE(load(joinLines({dataRecord(0, {1}), record, EOF_RECORD})));
        EXPECT_EQ(io.out, record + "\n");
        EXPECT_EQ(io.err, "#ERROR: unsupported record type found (" + std::to_string(type) + ")\n");
        EXPECT_EQ(image.getErrorLine(), 2u);
        const char digits[] = "0123456789ABCDEF";
        EXPECT_EQ(image.getErrorReason(), std::string("unsupported record type ") + digits[type >> 4] + digits[type & 15]);
    }
    EXPECT_FALSE(image.hasData());
}

TEST_F(FullFormat, BadChecksumFailsAsInTheStrictReader)
{
    EXPECT_FALSE(load(joinLines({dataRecord(0, {1}), "", "  " + CHECKSUM_LINE + "\r", EOF_RECORD})));
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "#ERROR: checksum error.\n#ERROR: corrupt line data in line \"" + CHECKSUM_LINE + "\"\n");
    EXPECT_EQ(image.getErrorLine(), 3u);
    EXPECT_EQ(image.getErrorReason(), "checksum error");
}

TEST_F(FullFormat, MalformedLinesNameTheirFault)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"0300300002337A1E", "a record must start with ':'"},
        {":0300300002337A1", "odd number of hex digits"},
        {":00000001", "record too short"},
        {":0300300002337G1E", "character that is not a hex digit"},
        {":+1000000AB54", "character that is not a hex digit"},
        {":0400300002337A1B", "byte count 4 does not match the length of the line"},
        {hexRecord(0x04, 0, {0x08}), "extended linear address record needs 2 data bytes"},
        {hexRecord(0x02, 0, {0x08, 0, 0}), "extended segment address record needs 2 data bytes"},
        {hexRecord(0x05, 0, {0x08, 0, 0}), "start linear address record needs 4 data bytes"},
        {hexRecord(0x03, 0, {0x08}), "start segment address record needs 4 data bytes"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(load(joinLines({dataRecord(0, {1}), c.first, EOF_RECORD}))) << c.first;
        EXPECT_EQ(io.err, "#ERROR: " + c.second + ".\n#ERROR: corrupt line data in line \"" + c.first + "\"\n");
        EXPECT_EQ(image.getErrorLine(), 2u) << c.first;
        EXPECT_EQ(image.getErrorReason(), c.second);
    }
}

TEST_F(FullFormat, FailedLoadLeavesBlocksAndStartAddressUnchanged)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0x10, {7}), hexRecord(0x05, 0, {0, 0, 0, 9}), EOF_RECORD})));
    const std::vector<BlockView> before = blocksOf(image);
    EXPECT_FALSE(load(joinLines({dataRecord(0, {1}), hexRecord(0x05, 0, {0, 0, 0, 5}), CHECKSUM_LINE, EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), before);
    EXPECT_EQ(image.getStartAddressValue(), 9u);
}

TEST_F(FullFormat, ExactDuplicateAddressKeepsTheFirstRecordWhole)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0x10, {1, 1}), dataRecord(0x10, {2, 2, 2, 2}), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x10, {1, 1}}}));
    EXPECT_EQ(io.err, "");
}

TEST_F(FullFormat, OverlappingRecordsKeepTheFirstValueOfEachByteAndWarn)
{
    // Line 1 covers 0x00..0x0F, line 2 0x08..0x17; line 3 (0x04..0x05) is
    // given again after line 1.
    ASSERT_TRUE(load(joinLines({dataRecord(0x00, countingBytes(16, 0x00)), dataRecord(0x08, countingBytes(16, 0xA0)),
                                dataRecord(0x04, {0xEE, 0xEE}), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image),
              std::vector<BlockView>({{0x00, concat(countingBytes(16, 0x00), countingBytes(8, 0xA8))}}));
    EXPECT_EQ(io.err, "#WARNING: 10 bytes given by more than one record, first in line 2; the first value of each is kept.\n");
}

TEST_F(FullFormat, OverlapDecidedByFileOrderNotAddress)
{
    // The record read first wins even when it lies higher.
    ASSERT_TRUE(load(joinLines({dataRecord(0x08, {0xAA, 0xAA}), dataRecord(0x00, countingBytes(16)), EOF_RECORD})));
    std::vector<uint8_t> expected = countingBytes(16);
    expected[8] = expected[9] = 0xAA;
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x00, expected}}));
    EXPECT_EQ(io.err, "#WARNING: 2 bytes given by more than one record, first in line 2; the first value of each is kept.\n");
}

TEST_F(FullFormat, RecordsInAnyOrderGiveAscendingBlocks)
{
    ASSERT_TRUE(load(joinLines({linearBaseRecord(2), dataRecord(0, {3}), linearBaseRecord(0), dataRecord(0x20, {2}),
                                dataRecord(0x10, {1}), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x10, {1}}, {0x20, {2}}, {0x20000, {3}}}));
}

TEST_F(FullFormat, ZeroLengthDataRecordAddsNothing)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0, {1}), ":00001000F0", EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, {1}}}));
    EXPECT_EQ(io.err, "");
}

TEST_F(FullFormat, OneBlockIsTheFlatImageByFullAddress)
{
    ASSERT_TRUE(load(joinLines({linearBaseRecord(0x0800), dataRecord(0xFFFE, {1, 2}), linearBaseRecord(0x0801),
                                dataRecord(0x0004, {3}), EOF_RECORD}),
                     true));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x0800FFFE, {1, 2, 0xFF, 0xFF, 0xFF, 0xFF, 3}}}));
}

TEST_F(FullFormat, OneBlockOverTheLimitFailsWithoutAllocating)
{
    const std::string text = joinLines({dataRecord(0, {1}), linearBaseRecord(0x1000), dataRecord(0, {2}), EOF_RECORD});
    IntelHexFile::fulloptions_t options;
    options.oneBlock = true;
    // 0x10000001 bytes: one more than the default limit of 256 MiB.
    EXPECT_FALSE(loadWith(text, options));
    EXPECT_EQ(io.err, "#ERROR: image spans 268435457 bytes, more than the limit of 268435456 bytes.\n");
    EXPECT_EQ(image.getErrorLine(), 0u);
    EXPECT_EQ(image.getErrorReason(), "image spans 268435457 bytes, more than the limit of 268435456 bytes");
    EXPECT_FALSE(image.hasData());

    options.maxImageSize = 16;
    EXPECT_FALSE(loadWith(joinLines({dataRecord(0, {1}), dataRecord(16, {2}), EOF_RECORD}), options));
    EXPECT_EQ(io.err, "#ERROR: image spans 17 bytes, more than the limit of 16 bytes.\n");
    options.maxImageSize = 17;
    EXPECT_TRUE(loadWith(joinLines({dataRecord(0, {1}), dataRecord(16, {2}), EOF_RECORD}), options));
    EXPECT_EQ(image[0].getSize(), 17u);

    // Normal mode has no such limit: the blocks are small.
    image.clear();
    EXPECT_TRUE(load(text));
    EXPECT_EQ(image.getBlockCount(), 2u);
}

TEST_F(FullFormat, MissingFile)
{
    const std::string path = dir.file("missing.hex");
    const CapturedOutput out = captureOutput([&] { EXPECT_FALSE(image.loadFullFormat(path.c_str(), false)); });
    EXPECT_EQ(out.err, "#ERROR: failed to open \"" + path + "\"\n");
    EXPECT_EQ(image.getErrorLine(), 0u);
    EXPECT_EQ(image.getErrorReason(), "cannot open the file");
}

TEST_F(FullFormat, APathThatOpensButCannotBeReadFailsWithItsReason)
{
    for (bool oneBlock : {false, true}) {
        IntelHexFile loaded;
        bool ok = true;
        const CapturedOutput out =
            captureOutput([&] { EXPECT_NO_THROW(ok = loaded.loadFullFormat(dir.path().c_str(), oneBlock)); });
        EXPECT_FALSE(ok);
        EXPECT_EQ(out.out, "");
        EXPECT_EQ(out.err, "#ERROR: cannot read the file: Is a directory.\n");
        EXPECT_EQ(loaded.getErrorLine(), 0u);
        EXPECT_EQ(loaded.getErrorReason(), "cannot read the file: Is a directory");
        EXPECT_FALSE(loaded.hasData());
    }
}

TEST_F(FullFormat, ReadsFromAPipe)
{
    // Out of order, so that the reader cannot take it in one pass it could
    // not repeat.
    const FifoFile fifo(dir, "pipe.hex", joinLines({dataRecord(0x10, {1}), dataRecord(0x00, {2}), EOF_RECORD}));
    captureOutput([&] { EXPECT_TRUE(image.loadFullFormat(fifo.path().c_str(), false)); });
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x00, {2}}, {0x10, {1}}}));
}

TEST_F(FullFormat, AppendsToWhatTheContainerHolds)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0x10, {1}), EOF_RECORD})));
    ASSERT_TRUE(load(joinLines({dataRecord(0x00, {2}), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x10, {1}}, {0x00, {2}}}));
}

// Line numbers of load(): its diagnostics are unchanged.
class StrictErrorLine : public ::testing::Test {
protected:
    bool load(const std::string& text, bool oneBlock = false)
    {
        const std::string path = dir.write("in" + std::to_string(++files) + ".hex", text);
        bool ok = false;
        captureOutput([&] { ok = image.load(path.c_str(), oneBlock); });
        return ok;
    }
    TempDir dir;
    IntelHexFile image;
    int files = 0;
};

TEST_F(StrictErrorLine, NamesTheLineAndTheReason)
{
    const std::string d = dataRecord(0, {1});
    const std::vector<std::tuple<std::string, size_t, std::string>> cases = {
        {joinLines({d, d, CHECKSUM_LINE, EOF_RECORD}), 3, "checksum error"},
        {joinLines({d, "", EOF_RECORD}), 2, "line too short or not starting with ':'"},
        {joinLines({d, ":0000000000", EOF_RECORD}), 2, "ten zero digits are not a record"},
        {joinLines({":0300300002337A", EOF_RECORD}), 1, "the line ends where the checksum should begin"},
        {joinLines({":0300300002337A1E00", EOF_RECORD}), 1, "the line does not end right after its checksum"},
        {joinLines({d, hexRecord(0x02, 0, {0x10, 0}), EOF_RECORD}), 2, "unsupported record type 02"},
        {joinLines({hexRecord(0x04, 0, {0x08}), EOF_RECORD}), 1,
         "extended linear address record with fewer than 2 data bytes"},
        {d + "\n" + d, 2, "end of file without an end-of-file record"},
        {d + "\n" + d + "\n", 3, "line too short or not starting with ':'"},
        {"", 1, "line too short or not starting with ':'"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(load(std::get<0>(c))) << std::get<0>(c);
        EXPECT_EQ(image.getErrorLine(), std::get<1>(c)) << std::get<0>(c);
        EXPECT_EQ(image.getErrorReason(), std::get<2>(c)) << std::get<0>(c);
    }
    EXPECT_TRUE(load(joinLines({d, EOF_RECORD})));
    EXPECT_EQ(image.getErrorLine(), 0u);
    EXPECT_EQ(image.getErrorReason(), "");
}

TEST_F(StrictErrorLine, OutOfOrderFilesCountLinesToo)
{
    // Out of order: read by the exact reader after the fast one gives up.
    EXPECT_FALSE(load(joinLines({dataRecord(0x10, {1}), dataRecord(0, {2}), dataRecord(0x20, {3}), CHECKSUM_LINE})));
    EXPECT_EQ(image.getErrorLine(), 4u);
}

TEST_F(StrictErrorLine, ExceptionsLeaveTheLine)
{
    const std::string path = dir.write("short.hex", joinLines({dataRecord(0, {1}), ":05003000023", EOF_RECORD}));
    EXPECT_THROW(image.load(path.c_str(), false), std::out_of_range);
    EXPECT_EQ(image.getErrorLine(), 2u);
    EXPECT_EQ(image.getErrorReason(), "the record's data runs past the end of the line");
    const std::string minus = dir.write("minus.hex", joinLines({":-10000000000", EOF_RECORD}));
    EXPECT_THROW(image.load(minus.c_str(), false), std::bad_alloc);
    EXPECT_EQ(image.getErrorLine(), 1u);
    EXPECT_EQ(image.getErrorReason(), "impossible byte count");
    const std::string wrap = dir.write("wrap.hex", joinLines({dataRecord(0xFFF0, {1}), linearBaseRecord(1),
                                                              dataRecord(0, {2}), EOF_RECORD}));
    EXPECT_THROW(image.load(wrap.c_str(), true), std::bad_alloc);
    EXPECT_EQ(image.getErrorLine(), 0u);
    EXPECT_EQ(image.getErrorReason(), "the one-block image size wraps around (records of several linear bases)");
}

TEST_F(StrictErrorLine, MissingFile)
{
    const std::string path = dir.file("missing.hex");
    captureOutput([&] { EXPECT_FALSE(image.load(path.c_str(), false)); });
    EXPECT_EQ(image.getErrorLine(), 0u);
    EXPECT_EQ(image.getErrorReason(), "cannot open the file");
}

TEST_F(FullFormat, RepeatedRecordIsDroppedWithItsWrappedPart)
{
    // Segment 0x1000: the second record at offset 0xFFF8 repeats the first's
    // address; its bytes past the segment's end, which would wrap to 0x10000,
    // go with it.
    ASSERT_TRUE(load(joinLines({segmentRecord(0x1000), dataRecord(0xFFF8, {1, 2, 3, 4}),
                                dataRecord(0xFFF8, countingBytes(16, 0x40)), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x1FFF8, {1, 2, 3, 4}}}));
    EXPECT_EQ(io.err, "");
}

TEST_F(FullFormat, WrappedPartStartingAtARecordsAddressIsAnOverlap)
{
    // The wrapped part of the first record lands at 0x10000, where the second
    // record starts: not a repeated record, so the second keeps its bytes
    // beyond the first's.
    ASSERT_TRUE(load(joinLines({segmentRecord(0x1000), dataRecord(0xFFFE, {1, 2, 3, 4}),
                                dataRecord(0x0000, {9, 9, 9, 9}), EOF_RECORD})));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x10000, {3, 4, 9, 9}}, {0x1FFFE, {1, 2}}}));
    EXPECT_EQ(io.err, "#WARNING: 2 bytes given by more than one record, first in line 3; the first value of each is kept.\n");
}

TEST_F(FullFormat, OverlongLineFails)
{
    EXPECT_FALSE(load(joinLines({dataRecord(0, {1}), std::string(300000, '0'), EOF_RECORD})));
    EXPECT_EQ(io.err, "#ERROR: line too long.\n#ERROR: corrupt line data in line \"\"\n");
    EXPECT_EQ(image.getErrorLine(), 2u);
    EXPECT_EQ(image.getErrorReason(), "line too long");
}
