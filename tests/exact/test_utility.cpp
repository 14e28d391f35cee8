// The string helpers of utility.h: leftTrim, rightTrim, strTrim and
// strRemove.
#include "utility.h"

#include <gtest/gtest.h>

#include <string>

TEST(StrTrim, KeepsInnerSpaces)
{
    std::string s = "  x y  ";
    EXPECT_EQ(&strTrim(s, " "), &s);
    EXPECT_EQ(s, "x y");
}

TEST(StrTrim, OnlySpacesBecomesEmpty)
{
    std::string s = "     ";
    strTrim(s, " ");
    EXPECT_EQ(s, "");
}

TEST(StrTrim, EmptyStaysEmpty)
{
    std::string s;
    strTrim(s, " ");
    EXPECT_EQ(s, "");
}

TEST(StrTrim, LeavesTabsAndCarriageReturns)
{
    std::string s = " x\r";
    strTrim(s, " ");
    EXPECT_EQ(s, "x\r");

    std::string t = "\t x \t";
    strTrim(t, " ");
    EXPECT_EQ(t, "\t x \t");
}

TEST(StrTrim, SetOfSeveralCharacters)
{
    std::string s = " \t\rabc\r\t ";
    strTrim(s, " \t\r");
    EXPECT_EQ(s, "abc");
}

TEST(LeftTrim, RemovesOnlyFromTheFront)
{
    std::string s = "  a  ";
    EXPECT_EQ(&leftTrim(s, " "), &s);
    EXPECT_EQ(s, "a  ");
}

TEST(LeftTrim, AllInSetBecomesEmpty)
{
    std::string s = "xyxy";
    leftTrim(s, "yx");
    EXPECT_EQ(s, "");
}

TEST(RightTrim, RemovesOnlyFromTheBack)
{
    std::string s = "  a  ";
    EXPECT_EQ(&rightTrim(s, " "), &s);
    EXPECT_EQ(s, "  a");
}

TEST(RightTrim, AllInSetBecomesEmpty)
{
    std::string s = "   ";
    rightTrim(s, " ");
    EXPECT_EQ(s, "");
}

TEST(StrRemove, RemovesEveryCarriageReturn)
{
    std::string s = "a\rb\r";
    EXPECT_EQ(strRemove(s, "\r"), 2);
    EXPECT_EQ(s, "ab");
}

TEST(StrRemove, NoOccurrenceLeavesStringUnchanged)
{
    std::string s = ":0300300002337A1E";
    EXPECT_EQ(strRemove(s, "\r"), 0);
    EXPECT_EQ(s, ":0300300002337A1E");
}

TEST(StrRemove, RemovesOccurrencesThatDeletionBringsTogether)
{
    std::string s = "aabb";
    EXPECT_EQ(strRemove(s, "ab"), 2);
    EXPECT_EQ(s, "");
}

TEST(StrRemove, WholeSubstringNotCharacterSet)
{
    std::string s = "abcba";
    EXPECT_EQ(strRemove(s, "ba"), 1);
    EXPECT_EQ(s, "abc");
}

TEST(StrRemove, EmptyPatternRemovesNothingAndEnds)
{
    std::string s = "abc";
    EXPECT_EQ(strRemove(s, ""), 0);
    EXPECT_EQ(s, "abc");

    std::string empty;
    EXPECT_EQ(strRemove(empty, ""), 0);
    EXPECT_EQ(empty, "");
}
