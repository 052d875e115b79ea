#include "tool/commands/values.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "tool/report/failure.h"

namespace {

using namespace VorelKestrel::Tool;

TEST(AddressInHexadecimalTest, IsWhatTheDigitsOfADecimalNumberMeanWithThe0xThatWasForgotten)
{
    EXPECT_EQ(0x54, addressInHexadecimal("54"));
    EXPECT_EQ(0x10, addressInHexadecimal("10"));
    EXPECT_EQ(0x77, addressInHexadecimal("77"));
}

TEST(AddressInHexadecimalTest, IsNoneWhereNothingElseCanBeMeant)
{
    EXPECT_EQ(std::nullopt, addressInHexadecimal("0x54")); // is hexadecimal
    EXPECT_EQ(std::nullopt, addressInHexadecimal("9"));    // the same address
    EXPECT_EQ(std::nullopt, addressInHexadecimal("78"));   // no chip has 0x78,
    EXPECT_EQ(std::nullopt, addressInHexadecimal("7"));    // nor 0x07
    EXPECT_EQ(std::nullopt, addressInHexadecimal("120"));
    EXPECT_EQ(std::nullopt, addressInHexadecimal("2a"));
    EXPECT_EQ(std::nullopt, addressInHexadecimal(""));
}

Failure failureOfAddress(const std::string& text)
{
    try {
        parseAddress(text, 0x7f);
    } catch (const Failure& failure) {
        return failure;
    }
    return {kWrongUsage, "", "", ""};
}

TEST(AddressTest, IsNamedAsItIsMeant)
{
    for (const char* text :
         {"Ox2a", "2ah", "2AH", "0x2a,", "0x 2a", "#2a", "$2a", "x2a", "0x0x2a", "1-002a", "0x2a/0x2b"})
        EXPECT_NE(std::string::npos, failureOfAddress(text).next().find("If you mean 0x2a, write it so")) << text;
    for (const char* text : {"chip", "0x2g", "0b0101010", "0x2\u0430", ""})
        EXPECT_EQ(std::string::npos, failureOfAddress(text).next().find("If you mean")) << text;
    EXPECT_EQ("That is not a number: not all of its characters are ASCII", failureOfAddress("0x2\u0430").answer());
}

TEST(AddressTest, IsNoPath)
{
    EXPECT_EQ("That is the path of a node, and no number", failureOfAddress("/dev/i2c-7").answer());
}

Failure failureOfBytes(const std::string& text)
{
    try {
        parseBytes(text, "sign a challenge");
    } catch (const Failure& failure) {
        return failure;
    }
    return {kWrongUsage, "", "", ""};
}

TEST(BytesTest, AreNamedIfTheyAreWrittenInAnotherWay)
{
    const auto says = [](const std::string& text, const std::string& words) {
        return failureOfBytes(text).answer().find(words) != std::string::npos;
    };
    EXPECT_TRUE(says("AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAc=", "may be base64"));
    EXPECT_TRUE(says("tN/2VnXf700lT/NLtc9C", "may be base64"));
    EXPECT_FALSE(says("no-base64==x", "may be base64"));
    EXPECT_TRUE(says("0x0011", "it has 0x"));
    EXPECT_TRUE(says("00,0x11", "it has 0x"));
    EXPECT_TRUE(says("00 1", "a digit is missing"));
    EXPECT_TRUE(says(TEST_DATA_FOLDER "/chip30.key", "the name of a file"));
}

} // namespace
