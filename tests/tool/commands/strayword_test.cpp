#include "tool/commands/strayword.h"

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel::Tool;

const std::vector<std::string> kOptions = {"--device", "--address", "--json"};

TEST(StrayWordTest, HasADashOfAWordProcessor)
{
    for (const char* dash : {"\u2010", "\u2013", "\u2014", "\u2212"}) {
        const std::string word = std::string(dash) + "d";
        EXPECT_EQ("'" + word + "' begins with a dash of a word processor",
                  explainStray({"info", word, "/dev/i2c-7"}, {"/dev/i2c-7", word}, kOptions).found);
    }
    EXPECT_FALSE(beginsWithADash("-d"));
    EXPECT_FALSE(beginsWithADash("\u00e4"));
}

TEST(StrayWordTest, HasOneDashOfTwo)
{
    const StrayWord stray = explainStray({"info", "-device", "/dev/i2c-7"}, {"/dev/i2c-7"}, kOptions);
    EXPECT_EQ("'-device' has one dash", stray.found);
    EXPECT_EQ("Did you mean '--device'?", stray.next);
    EXPECT_EQ("a word too many", explainStray({"info", "-vvv", "x"}, {"x"}, kOptions).found);
    EXPECT_EQ("a word too many", explainStray({"info", "-a0x2a", "x"}, {"x"}, kOptions).found);
}

TEST(StrayWordTest, IsAnUnknownOption)
{
    const StrayWord stray = explainStray({"info", "--adress", "0x2a"}, {"0x2a", "--adress"}, kOptions);
    EXPECT_EQ("unknown option '--adress'", stray.found);
    EXPECT_NE(std::string::npos, stray.next.find("Did you mean '--address'?")) << stray.next;
}

TEST(StrayWordTest, IsAValueWithoutItsOption)
{
    const StrayWord stray = explainStray({"info", "/dev/i2c-7", "0x2a"}, {"/dev/i2c-7", "0x2a"}, kOptions);
    EXPECT_EQ("a word too many", stray.found);
    EXPECT_NE(std::string::npos, stray.next.find("No option takes '/dev/i2c-7'")) << stray.next;
}

} // namespace
