// The file reader, parseHexFile(): the exact end-of-file test, the linear
// base, the first record kept for an address, and the diagnostics of each
// way a file can fail.
#include "support/diagnostics.h"
#include "support/capture.h"
#include "support/hex_text.h"
#include "support/temp_dir.h"
#include "support/test_access.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

using Line = IntelHexTestAccess::Line;
using LineSet = IntelHexTestAccess::LineSet;

const std::string NO_EOF =
    "#ERROR: end of file reached without EoF-record. HEX file might be corrupt.\n";
const std::string EMPTY_LINE_ERR = "#ERROR: corrupt line data in line \"\"\n";

struct ReadResult {
    bool ok = false;
    LineSet lines;
    CapturedOutput io;
};

// Runs the file reader on a file holding exactly text.
ReadResult readText(const std::string& text)
{
    TempDir dir;
    const std::string path = dir.write("input.hex", text);
    ReadResult result;
    std::ifstream in(path);
    result.io = captureOutput([&] { result.ok = IntelHexTestAccess::parseHexFile(in, result.lines); });
    return result;
}

struct Key {
    uint16_t linearBase;
    uint16_t address;
    std::vector<uint8_t> data;
    bool operator==(const Key& o) const
    {
        return linearBase == o.linearBase && address == o.address && data == o.data;
    }
};

std::ostream& operator<<(std::ostream& os, const Key& k)
{
    os << std::hex << k.linearBase << ":" << k.address << " [" << std::dec << k.data.size() << " bytes]";
    return os;
}

std::vector<Key> keys(const LineSet& lines)
{
    std::vector<Key> result;
    for (const Line& line : lines) {
        EXPECT_EQ(line.recordType, 0x00);
        result.push_back(Key{line.linearBase, line.address, line.data});
    }
    return result;
}

} // namespace

TEST(Reader, OnlyTheEndOfFileRecord)
{
    const ReadResult r = readText(":00000001FF\n");
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(r.lines.empty());
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, "");
}

TEST(Reader, EndOfFileRecordWithoutNewline)
{
    const ReadResult r = readText(dataRecord(0x10, {1, 2}) + "\n:00000001FF");
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0, 0x10, {1, 2}}}));
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, "");
}

TEST(Reader, CarriageReturnLineEndings)
{
    const ReadResult r = readText(joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, {1, 2, 3}),
                                             dataRecord(0x0003, {4}), EOF_RECORD},
                                            "\r\n"));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0x0800, 0, {1, 2, 3}}, {0x0800, 3, {4}}}));
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, "");
}

TEST(Reader, LowerCaseEndOfFileRecordIsUnsupportedTypeOne)
{
    const ReadResult r = readText(dataRecord(0, {1}) + "\n:00000001ff\n");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, ":00000001ff\n");
    EXPECT_EQ(r.io.err, "#ERROR: line.data.size() is zero\n#ERROR: unsupported record type found (1)\n");
}

TEST(Reader, LowerCaseEndOfFileRecordWithCarriageReturnEchoesTheCleanedLine)
{
    const ReadResult r = readText(":00000001ff\r\n");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, ":00000001ff\n");
    EXPECT_EQ(r.io.err, "#ERROR: line.data.size() is zero\n#ERROR: unsupported record type found (1)\n");
}

TEST(Reader, BlankLineBetweenRecords)
{
    const ReadResult r = readText(joinLines({dataRecord(0, {1}), "", dataRecord(1, {2}), EOF_RECORD}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, TOO_SHORT);
    EXPECT_EQ(r.io.err, EMPTY_LINE_ERR);
    // What was read before the failure is still in the set.
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0, 0, {1}}}));
}

TEST(Reader, ExtendedLinearAddressAppliesToFollowingRecords)
{
    const ReadResult r = readText(joinLines({":020000040800F2", dataRecord(0x0000, {0xAA}), EOF_RECORD}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0x0800, 0x0000, {0xAA}}}));
}

TEST(Reader, RecordsBeforeTheFirstBaseHaveBaseZeroAndEachBaseLastsUntilTheNext)
{
    const ReadResult r = readText(joinLines({dataRecord(0x0100, {1}), linearBaseRecord(0x0002),
                                             dataRecord(0x0200, {2}), dataRecord(0x0300, {3}),
                                             linearBaseRecord(0x0001), dataRecord(0x0400, {4}), EOF_RECORD}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0, 0x0100, {1}},
                                               {1, 0x0400, {4}},
                                               {2, 0x0200, {2}},
                                               {2, 0x0300, {3}}}));
}

TEST(Reader, ExtraBytesOfABaseRecordAreIgnored)
{
    const ReadResult r =
        readText(joinLines({hexRecord(0x04, 0, {0x12, 0x34, 0x56}), dataRecord(0, {1}), EOF_RECORD}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0x1234, 0, {1}}}));
}

TEST(Reader, BaseRecordWithOneByteIsCorrupt)
{
    const ReadResult r = readText(joinLines({hexRecord(0x04, 0, {0x08}), dataRecord(0, {1}), EOF_RECORD}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, "#ERROR: corrupt line data in line \"" + hexRecord(0x04, 0, {0x08}) + "\"\n");
    EXPECT_TRUE(r.lines.empty());
}

TEST(Reader, BaseRecordWithNoBytesIsCorrupt)
{
    const ReadResult r = readText(joinLines({":00000004FC", EOF_RECORD}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, "#ERROR: line.data.size() is zero\n#ERROR: corrupt line data in line \":00000004FC\"\n");
}

TEST(Reader, DuplicateAddressKeepsTheFirstRecord)
{
    const ReadResult r =
        readText(joinLines({dataRecord(0x10, {1, 1}), dataRecord(0x10, {2, 2, 2}), EOF_RECORD}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0, 0x10, {1, 1}}}));
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, "");
}

TEST(Reader, SameAddressUnderDifferentBasesAreDistinct)
{
    const ReadResult r = readText(joinLines({dataRecord(0x10, {1}), linearBaseRecord(1),
                                             dataRecord(0x10, {2}), EOF_RECORD}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0, 0x10, {1}}, {1, 0x10, {2}}}));
}

TEST(Reader, NoEndOfFileRecordAndNoFinalNewline)
{
    const ReadResult r = readText(dataRecord(0, {1}) + "\n" + dataRecord(1, {2}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, NO_EOF);
}

TEST(Reader, NoEndOfFileRecordWithFinalNewlineReadsAnEmptyLine)
{
    const ReadResult r = readText(dataRecord(0, {1}) + "\n" + dataRecord(1, {2}) + "\n");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, TOO_SHORT);
    EXPECT_EQ(r.io.err, EMPTY_LINE_ERR);
}

TEST(Reader, EmptyFile)
{
    const ReadResult r = readText("");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, TOO_SHORT);
    EXPECT_EQ(r.io.err, EMPTY_LINE_ERR);
}

TEST(Reader, SegmentAddressRecordIsUnsupported)
{
    const std::string seg = hexRecord(0x02, 0, {0x10, 0x00});
    const ReadResult r = readText(joinLines({dataRecord(0, {1}), seg, EOF_RECORD}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, seg + "\n");
    EXPECT_EQ(r.io.err, "#ERROR: unsupported record type found (2)\n");
}

TEST(Reader, StartAddressRecordsAreUnsupported)
{
    const std::string start = hexRecord(0x05, 0, {0x08, 0x00, 0x01, 0x01});
    const ReadResult r = readText(joinLines({"  " + start + "\r", EOF_RECORD}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, start + "\n"); // echoed as cleaned
    EXPECT_EQ(r.io.err, "#ERROR: unsupported record type found (5)\n");

    const ReadResult r3 = readText(joinLines({hexRecord(0x03, 0, {0, 0, 0x12, 0x34}), EOF_RECORD}));
    EXPECT_FALSE(r3.ok);
    EXPECT_EQ(r3.io.err, "#ERROR: unsupported record type found (3)\n");
}

TEST(Reader, HighRecordTypeIsPrintedInDecimal)
{
    const ReadResult r = readText(joinLines({hexRecord(0x0A, 0, {1}), EOF_RECORD}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.err, "#ERROR: unsupported record type found (10)\n");
}

TEST(Reader, CorruptLineIsQuotedAsCleaned)
{
    const ReadResult r = readText(joinLines({" :0300300002337A1F\r", EOF_RECORD}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, "#ERROR: checksum error.\n#ERROR: corrupt line data in line \":0300300002337A1F\"\n");
}

TEST(Reader, ShapeDiagnosticGoesToStdoutAndCorruptLineToStderr)
{
    const ReadResult r = readText(joinLines({":0300300002337A1E00", EOF_RECORD}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, SIGNATURE + ": second unexpected end of line\n17, 19\n");
    EXPECT_EQ(r.io.err, "#ERROR: corrupt line data in line \":0300300002337A1E00\"\n");
}

TEST(Reader, LinesAfterTheEndOfFileRecordAreNeverRead)
{
    const ReadResult r = readText(joinLines({dataRecord(0, {1}), EOF_RECORD, "garbage", dataRecord(8, {2})}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0, 0, {1}}}));
    EXPECT_EQ(r.io.out, "");
    EXPECT_EQ(r.io.err, "");
}

TEST(Reader, EndOfFileRecordFollowedByOtherCharactersStillEndsTheFile)
{
    const ReadResult r = readText(joinLines({dataRecord(0, {1}), ":00000001FF trailing text"}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(keys(r.lines).size(), 1u);
}

TEST(Reader, EndOfFileRecordWithLeadingSpaceIsNotTheEnd)
{
    const ReadResult r = readText(joinLines({" :00000001FF"}));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.io.out, ":00000001FF\n");
    EXPECT_EQ(r.io.err, "#ERROR: line.data.size() is zero\n#ERROR: unsupported record type found (1)\n");
}

TEST(Reader, ZeroLengthDataRecordIsStored)
{
    const ReadResult r = readText(joinLines({":00001000F0", EOF_RECORD}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.io.err, "#ERROR: line.data.size() is zero\n");
    EXPECT_EQ(keys(r.lines), std::vector<Key>({{0, 0x0010, {}}}));
}
