#include "tool/commands/nearest.h"

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel::Tool;

TEST(NearestWordTest, TakesTheFewestLettersToChange)
{
    const std::vector<std::string> words = {"info", "doctor", "certificate", "sign", "authenticate", "lock"};
    EXPECT_EQ("info", nearestWord("foo", words));
    EXPECT_EQ("authenticate", nearestWord("auhtenticate", words));
    EXPECT_EQ("certificate", nearestWord("certfiicat", words));
    EXPECT_EQ("sign", nearestWord("sing", words));
    EXPECT_EQ("lock", nearestWord("lock", words));
    EXPECT_EQ("doctor", nearestWord("doctors", words));
}

TEST(NearestWordTest, IsTheFirstOfSeveral)
{
    EXPECT_EQ("ab", nearestWord("x", {"ab", "cd"}));
    EXPECT_EQ("ab", nearestWord("", {"ab", "cd", "efg"}));
}

TEST(NearWordTest, DiffersInAFewLetters)
{
    EXPECT_TRUE(isNear("AUTHCHIP_ADRESS", "AUTHCHIP_ADDRESS"));
    EXPECT_TRUE(isNear("AUTHCHIP_DEV", "AUTHCHIP_DEVICE"));
    EXPECT_FALSE(isNear("AUTHCHIP_DE", "AUTHCHIP_DEVICE"));
}

} // namespace
