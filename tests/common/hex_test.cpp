#include "common/hex.h"

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel;

TEST(HexTest, WritesTwoLowerCaseDigitsForEachByte)
{
    EXPECT_EQ("000aff", toHex(Bytes{0x00, 0x0a, 0xff}));
    EXPECT_EQ("", toHex(Bytes{}));
}

TEST(HexTest, WritesANumberWithAtLeastTheDigitsAskedFor)
{
    EXPECT_EQ("0x2a", toHex(0x2a, 2));
    EXPECT_EQ("0x0000002a", toHex(0x2a, 8));
    EXPECT_EQ("0xffffffff", toHex(0xffffffff, 2));
}

TEST(HexTest, ReadsWhatItWrites)
{
    EXPECT_EQ((Bytes{0x00, 0x0a, 0xff}), fromHex("000aff"));
    EXPECT_EQ(Bytes{}, fromHex(""));
}

TEST(HexTest, ReadsCapitalsAndSeparatorsBetweenBytes)
{
    EXPECT_EQ((Bytes{0x0a, 0xbc, 0xff}), fromHex("0A:bC ff\n"));
}

TEST(HexTest, RefusesWhatIsNoSequenceOfBytes)
{
    for (const char* text : {"0", "000", "0g", "0 0", "0x00", "-1", "/0", ":g"})
        EXPECT_FALSE(fromHex(text)) << text;
}

TEST(HexTest, ReadsNumbersInDecimalAndHexadecimal)
{
    EXPECT_EQ(42, parseNumber("42"));
    EXPECT_EQ(42, parseNumber("0x2a"));
    EXPECT_EQ(42, parseNumber("0X2A"));
    EXPECT_EQ(0, parseNumber("0"));
    EXPECT_EQ(65535, parseNumber("65535"));
}

TEST(HexTest, TakesNoLeadingZeroForOctal)
{
    EXPECT_EQ(10, parseNumber("010"));
}

TEST(HexTest, RefusesWhatIsNoNumber)
{
    for (const char* text : {"", "0x", "2a", "-1", "0x-1", " 1", "1 ", "65536", "99999999999", "+1"})
        EXPECT_FALSE(parseNumber(text)) << text;
}

} // namespace
