#include "common/numbers.h"

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel;

constexpr std::uint32_t kLargest = 65535;

TEST(NumbersTest, ReadsNumbersInDecimalAndHexadecimal)
{
    EXPECT_EQ(42U, parseNumber("42", kLargest));
    EXPECT_EQ(42U, parseNumber("0x2a", kLargest));
    EXPECT_EQ(42U, parseNumber("0X2A", kLargest));
    EXPECT_EQ(0U, parseNumber("0", kLargest));
    EXPECT_EQ(65535U, parseNumber("65535", kLargest));
}

TEST(NumbersTest, TakesNoLeadingZeroForOctal)
{
    EXPECT_EQ(10U, parseNumber("010", kLargest));
}

TEST(NumbersTest, RefusesWhatIsNoNumber)
{
    for (const char* text : {"", "0x", "2a", "-1", "0x-1", " 1", "1 ", "65536", "99999999999", "+1"})
        EXPECT_FALSE(parseNumber(text, kLargest)) << text;
}

TEST(NumbersTest, RefusesWhatIsLargerThanAskedFor)
{
    EXPECT_EQ(0x7fU, parseNumber("127", 0x7f));
    EXPECT_FALSE(parseNumber("128", 0x7f));
    EXPECT_EQ(0xffffffffU, parseNumber("0xffffffff", 0xffffffff));
    EXPECT_FALSE(parseNumber("0x100000000", 0xffffffff));
}

TEST(NumbersTest, CountsOneByteWithoutAnS)
{
    EXPECT_EQ("0 bytes", inBytes(0));
    EXPECT_EQ("1 byte", inBytes(1));
    EXPECT_EQ("20 bytes", inBytes(20));
}

} // namespace
