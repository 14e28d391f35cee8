// The record parser, parseLine(): the record it returns for every kind of
// line, its strtol conversion of the fields, its checksum test and its two
// shape diagnostics on standard output.
#include "support/diagnostics.h"
#include "support/capture.h"
#include "support/test_access.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Line = IntelHexTestAccess::Line;

const std::string SIZE_ZERO = "#ERROR: line.data.size() is zero\n";
const std::string CHECKSUM = "#ERROR: checksum error.\n";

struct Parsed {
    Line line;
    std::string cleaned; // the line as the parser left it
    CapturedOutput io;
};

// Parses text into a fresh record (recordType deliberately preset to a value
// the parser must overwrite).
Parsed parse(const std::string& text)
{
    Parsed result;
    result.line = Line();
    result.line.recordType = 0x42;
    result.cleaned = text;
    result.io = captureOutput([&] { IntelHexTestAccess::parseLine(result.cleaned, result.line); });
    return result;
}

Line lineAt(uint16_t linearBase, uint16_t address)
{
    Line line = Line();
    line.linearBase = linearBase;
    line.address = address;
    return line;
}

} // namespace

TEST(Parser, DataRecord)
{
    const Parsed p = parse(":0300300002337A1E");
    EXPECT_EQ(p.line.recordType, 0x00);
    EXPECT_EQ(p.line.address, 0x0030);
    EXPECT_EQ(p.line.dataLen, 3u);
    EXPECT_EQ(p.line.data, std::vector<uint8_t>({0x02, 0x33, 0x7A}));
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, ExtendedLinearAddressRecord)
{
    const Parsed p = parse(":020000040800F2");
    EXPECT_EQ(p.line.recordType, 0x04);
    EXPECT_EQ(p.line.address, 0x0000);
    EXPECT_EQ(p.line.dataLen, 2u);
    EXPECT_EQ(p.line.data, std::vector<uint8_t>({0x08, 0x00}));
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, LowerCaseDigitsAreAccepted)
{
    const Parsed p = parse(":0300300002337a1e");
    EXPECT_EQ(p.line.recordType, 0x00);
    EXPECT_EQ(p.line.data, std::vector<uint8_t>({0x02, 0x33, 0x7A}));
}

TEST(Parser, TenZeroDigitsAreRejectedSilently)
{
    const Parsed p = parse(":0000000000");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, EndOfFileRecordIsTypeOneWithSizeWarning)
{
    const Parsed p = parse(":00000001FF");
    EXPECT_EQ(p.line.recordType, 0x01);
    EXPECT_EQ(p.line.dataLen, 0u);
    EXPECT_TRUE(p.line.data.empty());
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, SIZE_ZERO);
}

TEST(Parser, EndOfFileRecordInLowerCase)
{
    const Parsed p = parse(":00000001ff");
    EXPECT_EQ(p.line.recordType, 0x01);
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, SIZE_ZERO);
}

TEST(Parser, ZeroLengthDataRecordIsAcceptedWithWarning)
{
    const Parsed p = parse(":00001000F0");
    EXPECT_EQ(p.line.recordType, 0x00);
    EXPECT_EQ(p.line.address, 0x0010);
    EXPECT_TRUE(p.line.data.empty());
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, SIZE_ZERO);
}

TEST(Parser, SurroundingSpacesAreTrimmed)
{
    const Parsed p = parse("   :0300300002337A1E  ");
    EXPECT_EQ(p.line.recordType, 0x00);
    EXPECT_EQ(p.cleaned, ":0300300002337A1E");
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, TrailingCarriageReturnIsRemoved)
{
    const Parsed p = parse(":0300300002337A1E\r");
    EXPECT_EQ(p.line.recordType, 0x00);
    EXPECT_EQ(p.cleaned, ":0300300002337A1E");
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, CarriageReturnsInsideTheLineAreRemoved)
{
    const Parsed p = parse(":03003000\r02337A1E\r");
    EXPECT_EQ(p.line.recordType, 0x00);
    EXPECT_EQ(p.cleaned, ":0300300002337A1E");
}

TEST(Parser, SpaceBeforeCarriageReturnIsASecondUnexpectedEnd)
{
    const Parsed p = parse(":0300300002337A1E \r");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.cleaned, ":0300300002337A1E ");
    EXPECT_EQ(p.io.out, SIGNATURE + ": second unexpected end of line\n17, 18\n");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, CharactersAfterTheChecksumAreASecondUnexpectedEnd)
{
    // The trailing 00 adds nothing to the sum, so only the shape test fails.
    const Parsed p = parse(":0300300002337A1E00");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.io.out, SIGNATURE + ": second unexpected end of line\n17, 19\n");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, OneCharacterChecksumIsASecondUnexpectedEnd)
{
    // 01+00+00+00+FF sums to 0 and the lone "0" adds nothing.
    const Parsed p = parse(":01000000FF0");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.io.out, SIGNATURE + ": second unexpected end of line\n13, 12\n");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, EmptyLineIsTooShort)
{
    const Parsed p = parse("");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.io.out, TOO_SHORT);
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, TenCharactersAreTooShort)
{
    const Parsed p = parse(":000000010");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.io.out, TOO_SHORT);
    const Parsed q = parse("  :00000001F  ");
    EXPECT_EQ(q.line.recordType, 0xFF);
    EXPECT_EQ(q.io.out, TOO_SHORT);
}

TEST(Parser, MissingColonIsTooShort)
{
    const Parsed p = parse("0300300002337A1E");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.io.out, TOO_SHORT);
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, OnlySpacesAreTrimmedNotTabs)
{
    const Parsed p = parse("\t:0300300002337A1E");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.cleaned, "\t:0300300002337A1E");
    EXPECT_EQ(p.io.out, TOO_SHORT);
}

TEST(Parser, TooShortKeepsTheRecordFromBefore)
{
    Line line = Line();
    line.dataLen = 7;
    line.address = 0x1234;
    line.data = {1, 2};
    std::string text = ":00";
    const CapturedOutput io = captureOutput([&] { IntelHexTestAccess::parseLine(text, line); });
    EXPECT_EQ(line.recordType, 0xFF);
    EXPECT_EQ(line.dataLen, 7u);
    EXPECT_EQ(line.address, 0x1234);
    EXPECT_EQ(line.data, std::vector<uint8_t>({1, 2}));
    EXPECT_EQ(io.out, TOO_SHORT);
}

TEST(Parser, WrongChecksumDigit)
{
    const Parsed p = parse(":0300300002337A1F");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, CHECKSUM);
}

TEST(Parser, MissingChecksumOnOddLengthIsRejectedSilently)
{
    const Parsed p = parse(":0300300002337A");
    EXPECT_EQ(p.line.recordType, 0xFF);
    EXPECT_EQ(p.line.dataLen, 3u);
    EXPECT_EQ(p.io.out, "");
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, DataRunningPastEvenLengthLineThrowsOutOfRange)
{
    Line line = Line();
    std::string text = ":05003000023";
    CapturedOutput io;
    try {
        captureOutputKeeping([&] { IntelHexTestAccess::parseLine(text, line); }, &io);
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_NE(std::string(e.what()).find("basic_string::substr"), std::string::npos) << e.what();
    }
    EXPECT_EQ(line.recordType, 0xFF);
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "");
}

TEST(Parser, NegativeByteCountIsAnAllocationError)
{
    Line line = Line();
    std::string text = ":-10000000000";
    EXPECT_THROW(IntelHexTestAccess::parseLine(text, line), std::bad_alloc);
    EXPECT_EQ(line.dataLen, static_cast<size_t>(-1));
    EXPECT_EQ(line.recordType, 0xFF);
}

TEST(Parser, FieldsConvertLikeStrtol)
{
    // "0x" has no digit after the prefix: strtol reads the 0 and stops.
    const Parsed p = parse(":010000000xFF");
    EXPECT_EQ(p.line.recordType, 0x00);
    EXPECT_EQ(p.line.data, std::vector<uint8_t>({0x00}));

    // A sign is accepted: "+1" is one byte.
    const Parsed q = parse(":+1000000AB54");
    EXPECT_EQ(q.line.recordType, 0x00);
    EXPECT_EQ(q.line.dataLen, 1u);
    EXPECT_EQ(q.line.data, std::vector<uint8_t>({0xAB}));

    // Characters that are not digits convert to 0 without an error of their
    // own: here the type "0G" and the data byte "G0" are both 0.
    const Parsed r = parse(":0100000GG0FF");
    EXPECT_EQ(r.line.recordType, 0x00);
    EXPECT_EQ(r.line.data, std::vector<uint8_t>({0x00}));
    EXPECT_EQ(r.io.err, "");

    // ... so such lines usually fail the checksum instead.
    const Parsed s = parse(":0100000012GG");
    EXPECT_EQ(s.line.recordType, 0xFF);
    EXPECT_EQ(s.io.err, CHECKSUM);
}

TEST(Parser, RecordTypeIsNotChecked)
{
    const Parsed p = parse(":0400000508000000EF");
    EXPECT_EQ(p.line.recordType, 0x05);
    EXPECT_EQ(p.line.data, std::vector<uint8_t>({0x08, 0x00, 0x00, 0x00}));
    EXPECT_EQ(p.io.err, "");
}

TEST(Parser, DataIsResizedToTheByteCount)
{
    Line line = Line();
    line.data = {9, 9, 9, 9, 9};
    std::string text = ":0300300002337A1E";
    IntelHexTestAccess::parseLine(text, line);
    EXPECT_EQ(line.data, std::vector<uint8_t>({0x02, 0x33, 0x7A}));
}

TEST(Parser, LongestRecord)
{
    std::string text = ":FF000000";
    unsigned sum = 0xFF;
    for (int i = 0; i < 255; ++i) {
        text += "A5";
        sum += 0xA5;
    }
    char checksum[3];
    snprintf(checksum, sizeof checksum, "%02X", (0x100 - (sum & 0xFF)) & 0xFF);
    text += checksum;
    const Parsed p = parse(text);
    EXPECT_EQ(p.line.recordType, 0x00);
    EXPECT_EQ(p.line.data, std::vector<uint8_t>(255, 0xA5));
}

TEST(RecordOrder, LinearBaseFirstThenAddress)
{
    EXPECT_TRUE(IntelHexTestAccess::less(lineAt(0x0000, 0xFFFF), lineAt(0x0001, 0x0000)));
    EXPECT_FALSE(IntelHexTestAccess::less(lineAt(0x0001, 0x0000), lineAt(0x0000, 0xFFFF)));
    EXPECT_TRUE(IntelHexTestAccess::less(lineAt(0x0800, 0x0010), lineAt(0x0800, 0x0020)));
    EXPECT_FALSE(IntelHexTestAccess::less(lineAt(0x0800, 0x0020), lineAt(0x0800, 0x0010)));
    // Unsigned 16-bit comparison.
    EXPECT_TRUE(IntelHexTestAccess::less(lineAt(0x7FFF, 0), lineAt(0x8000, 0)));
    EXPECT_TRUE(IntelHexTestAccess::less(lineAt(0, 0x7FFF), lineAt(0, 0x8000)));
}

TEST(RecordOrder, SameBaseAndAddressAreEquivalentWhateverTheData)
{
    Line a = lineAt(0x0800, 0x0010);
    Line b = lineAt(0x0800, 0x0010);
    a.recordType = 0;
    a.data = {1};
    b.recordType = 4;
    b.data = {2, 3};
    EXPECT_FALSE(IntelHexTestAccess::less(a, b));
    EXPECT_FALSE(IntelHexTestAccess::less(b, a));
}

TEST(RecordSet, KeepsTheFirstOfEquivalentRecords)
{
    IntelHexTestAccess::LineSet set;
    Line a = lineAt(0, 0x10);
    a.data = {1};
    Line b = lineAt(0, 0x10);
    b.data = {2};
    EXPECT_TRUE(set.insert(a).second);
    EXPECT_FALSE(set.insert(b).second);
    ASSERT_EQ(set.size(), 1u);
    EXPECT_EQ(set.begin()->data, std::vector<uint8_t>({1}));
}

TEST(RecordSet, IteratesInOrder)
{
    IntelHexTestAccess::LineSet set;
    set.insert(lineAt(1, 0x0000));
    set.insert(lineAt(0, 0x0020));
    set.insert(lineAt(0, 0x0010));
    std::vector<uint32_t> order;
    for (const Line& line : set)
        order.push_back(static_cast<uint32_t>(line.linearBase) << 16 | line.address);
    EXPECT_EQ(order, std::vector<uint32_t>({0x00000010, 0x00000020, 0x00010000}));
}

TEST(Parser, EveryTwoCharacterFieldConvertsAsStrtolDoes)
{
    const std::string alphabet = " \t+-0123456789abcdefABCDEFxXgG:";
    for (char a : alphabet) {
        for (char b : alphabet) {
            const std::string field = {a, b};
            const long expected = std::strtol(field.c_str(), nullptr, 16);
            // The byte count is converted before anything can fail.
            std::string text = ":" + field + "0000000000";
            Line line = Line();
            try {
                captureOutput([&] { IntelHexTestAccess::parseLine(text, line); });
            } catch (const std::exception&) {
                // out_of_range or bad_alloc, later in the line: not the point here
            }
            if (text.size() > 10 && text[0] == ':') {
                EXPECT_EQ(line.dataLen, static_cast<size_t>(expected)) << "field \"" << field << "\"";
            }
        }
    }
}

TEST(Parser, FourCharacterAddressFieldConvertsAsStrtolDoes)
{
    const std::vector<std::string> fields = {"0030", "FFFF", "ffff", " 123", "+123", "-001", "0x12", "0X1F",
                                             "12G4", "G123", "    ", "00 1", "7fFf", "-FFF", " -1 "};
    for (const std::string& field : fields) {
        std::string text = ":00" + field + "00FF";
        Line line = Line();
        captureOutput([&] { IntelHexTestAccess::parseLine(text, line); });
        EXPECT_EQ(line.address, static_cast<uint16_t>(std::strtol(field.c_str(), nullptr, 16))) << field;
    }
}
