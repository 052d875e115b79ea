#include "tool/commands/values.h"

#include <optional>

#include <gtest/gtest.h>

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

} // namespace
