#include "tool/report/report.h"

#include <sstream>

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

std::string asText(const Report& report)
{
    std::ostringstream out;
    report.printText(out);
    return out.str();
}

std::string asJson(const Report& report)
{
    std::ostringstream out;
    report.printJson(out);
    return out.str();
}

TEST(ReportTest, AlignsTheValues)
{
    EXPECT_EQ("key     RSA\nissuer  CN=A\n", asText(Report().row("key", "key", "RSA").row("issuer", "by", "CN=A")));
}

TEST(ReportTest, PutsAValueWithoutLabelAtTheStartOfTheLine)
{
    EXPECT_EQ("00\n", asText(Report().hexRow("", "data", {0})));
}

TEST(ReportTest, KeepsTheOrderOfTheKeysOnOneLine)
{
    EXPECT_EQ("{\"z\":\"1\",\"a\":2}\n", asJson(Report().row("z", "z", "1").json("a", 2)));
}

TEST(ReportTest, ShowsEachReaderOnlyItsOwnRows)
{
    const auto report = Report().text("people", "1").json("programs", true);
    EXPECT_EQ("people  1\n", asText(report));
    EXPECT_EQ("{\"programs\":true}\n", asJson(report));
}

TEST(ReportTest, BreaksLongHexadecimalForPeopleOnly)
{
    const auto report = Report().hexRow("data", "data", Bytes(33, 0xab));
    std::string line;
    for (int i = 0; i < 32; ++i)
        line += "ab";
    EXPECT_EQ("data  " + line + "\n      ab\n", asText(report));
    EXPECT_EQ("{\"data\":\"" + line + "ab\"}\n", asJson(report));
}

TEST(ReportTest, ThatIsEmptyIsSilentForPeople)
{
    EXPECT_EQ("", asText(Report()));
    EXPECT_EQ("{}\n", asJson(Report()));
}

TEST(ReportTest, LetsNoTextFromOutsideReachTheTerminal)
{
    const auto report = Report().row("name", "name", "\x1b[2J\xff\xc2\x9b");
    EXPECT_EQ("name  \\x1b[2J\\xff\\xc2\\x9b\n", asText(report));
    EXPECT_EQ("{\"name\":\"\\u001b[2J\\ufffd\\u009b\"}\n", asJson(report));
}

} // namespace
