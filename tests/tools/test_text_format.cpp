// The tool's text helpers: hex addresses and numbers, human sizes, JSON and
// XML text, padding and address ranges.
#include "text_format.h"

#include <gtest/gtest.h>

using namespace hexblocks::cli;

TEST(TextFormat, HexAddress)
{
    EXPECT_EQ(hexAddress(0), "0x00000000");
    EXPECT_EQ(hexAddress(0x08004000), "0x08004000");
    EXPECT_EQ(hexAddress(0xFFFFFFFFull), "0xFFFFFFFF");
    EXPECT_EQ(hexAddress(0x100000000ull), "0x100000000");
}

TEST(TextFormat, Hex16)
{
    EXPECT_EQ(hex16(0), "0x0000");
    EXPECT_EQ(hex16(0xFC00), "0xFC00");
}

TEST(TextFormat, HumanSize)
{
    EXPECT_EQ(humanSize(0), "0 B");
    EXPECT_EQ(humanSize(1023), "1023 B");
    EXPECT_EQ(humanSize(1024), "1 KiB");
    EXPECT_EQ(humanSize(1536), "1.5 KiB");
    EXPECT_EQ(humanSize(12288), "12 KiB");
    EXPECT_EQ(humanSize(16448), "16.1 KiB");
    EXPECT_EQ(humanSize(32ull << 20), "32 MiB");
    EXPECT_EQ(humanSize((256ull << 20) + 5), "256.0 MiB");
    EXPECT_EQ(humanSize(4ull << 30), "4 GiB");
}

TEST(TextFormat, JsonString)
{
    EXPECT_EQ(jsonString("app.hex"), "\"app.hex\"");
    EXPECT_EQ(jsonString("a\"b\\c"), "\"a\\\"b\\\\c\"");
    EXPECT_EQ(jsonString("tab\there\nnl"), "\"tab\\there\\nnl\"");
    EXPECT_EQ(jsonString(std::string("\x01", 1)), "\"\\u0001\"");
}

TEST(TextFormat, Padding)
{
    EXPECT_EQ(padLeft("64 B", 8), "    64 B");
    EXPECT_EQ(padRight("0x0800", 8), "0x0800  ");
    EXPECT_EQ(padLeft("too long", 3), "too long");
    EXPECT_EQ(padRight("", 2), "  ");
}

TEST(TextFormat, XmlText)
{
    EXPECT_EQ(xmlText("plain 0x08000000"), "plain 0x08000000");
    EXPECT_EQ(xmlText("a&b<c>\"d\"'e'"), "a&amp;b&lt;c&gt;&quot;d&quot;'e'");
}

TEST(TextFormat, AddressRange)
{
    EXPECT_EQ(addressRange(0x08000000, 0x0800C000), "0x08000000-0x0800BFFF");
    EXPECT_EQ(addressRange(0xFFFFFFFF, 0x100000000ull), "0xFFFFFFFF-0xFFFFFFFF");
    EXPECT_EQ(addressRange(0, 1), "0x00000000-0x00000000");
}
