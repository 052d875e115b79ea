#include "common/escaped.h"

#include <gtest/gtest.h>

using namespace VorelKestrel;

namespace {

struct Case
{
    const char* name;
    std::string text;
    std::string wanted;
};

TEST(EscapedTest, LeavesWhatATerminalOnlyShows)
{
    const Case cases[] = {
        {"nothing", "", ""},
        {"ASCII", "authchip (1) \\ ~", "authchip (1) \\ ~"},
        {"other scripts", "Gerät 装置 𝛑", "Gerät 装置 𝛑"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(each.wanted, escaped(each.text)) << each.name;
}

TEST(EscapedTest, WritesWhatATerminalObeysOrHidesInHexadecimal)
{
    const Case cases[] = {
        {"window title", "\x1b]0;owned\x07", "\\x1b]0;owned\\x07"},
        {"end of line", "one\ntwo\r", "one\\x0atwo\\x0d"},
        {"zero", std::string("a\0b", 3), "a\\x00b"},
        {"delete", "\x7f", "\\x7f"},
        {"control sequence of one character",
         "\xc2\x9b"
         "2J",
         "\\xc2\\x9b2J"},
        {"reversed text", "\xe2\x80\xae", R"(\xe2\x80\xae)"}, // NOLINT(misc-misleading-bidirectional): what is tested
        {"mark of byte order", "\xef\xbb\xbf", R"(\xef\xbb\xbf)"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(each.wanted, escaped(each.text)) << each.name;
}

TEST(EscapedTest, WritesBytesThatAreNoUtf8InHexadecimal)
{
    const Case cases[] = {
        {"Latin 1", "Ger\xe4t", "Ger\\xe4t"},
        {"cut off", "\xe8\xa3", "\\xe8\\xa3"},
        {"too long a form", "\xc0\xaf\xe0\x80\xaf", R"(\xc0\xaf\xe0\x80\xaf)"},
        {"half of a pair", "\xed\xa0\x80", R"(\xed\xa0\x80)"},
        {"too large", "\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},
        {"no first byte", "\x80\xff", "\\x80\\xff"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(each.wanted, escaped(each.text)) << each.name;
}

TEST(EscapedTest, LeavesLineFeedsInATextOfLines)
{
    EXPECT_EQ("one\ntwo\\x1b\n", escapedLines("one\ntwo\x1b\n"));
}

} // namespace
