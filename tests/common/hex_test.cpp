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

} // namespace
