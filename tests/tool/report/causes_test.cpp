#include "tool/report/causes.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "tool/commands/commandline.h"

namespace {

using namespace VorelKestrel::Tool;

std::string contentOf(const std::string& file)
{
    std::ifstream stream(SOURCE_FOLDER "/" + file);
    std::string content((std::istreambuf_iterator<char>(stream)), {});
    EXPECT_FALSE(content.empty()) << file;
    return content;
}

/// The manual page's list: each status, its meaning and its causes.
std::map<int, std::string> statusesOfManual()
{
    std::string page = contentOf("packaging/man/authchip.1");
    page = page.substr(page.find(".SH EXIT STATUS"));
    page = page.substr(0, page.find(".SH ENVIRONMENT"));
    std::map<int, std::string> statuses;
    const std::regex row(R"(\.B (\d)\n([^.]*))");
    for (std::sregex_iterator match(page.begin(), page.end(), row), end; match != end; ++match) {
        std::string text = (*match)[2];
        std::replace(text.begin(), text.end(), '\n', ' ');
        statuses[std::stoi((*match)[1])] = text;
    }
    return statuses;
}

std::set<std::string> itemsOf(const std::string& list)
{
    std::set<std::string> items;
    std::istringstream stream(list.substr(list.find(": ") + 2));
    for (std::string item; std::getline(stream, item, ',');)
        items.insert(std::regex_replace(item, std::regex("^ +| +$"), ""));
    return items;
}

TEST(CausesTest, AreNamedOnceAndBelongToAClass)
{
    std::set<ExitStatus> statuses;
    for (const CauseClass& row : causeClasses())
        EXPECT_TRUE(statuses.insert(row.status).second) << row.name;
    std::set<std::string> names;
    for (const Cause& cause : causes()) {
        EXPECT_TRUE(names.insert(cause.name).second) << cause.name;
        EXPECT_EQ(1U, statuses.count(cause.status)) << cause.name;
        EXPECT_EQ(cause.status, statusOf(cause.name));
    }
    EXPECT_THROW(statusOf("no such cause"), std::logic_error);
}

TEST(CausesTest, KeepTheirExitStatuses)
{
    EXPECT_EQ(1, static_cast<int>(statusOf("no answer")));
    EXPECT_EQ(2, static_cast<int>(statusOf(kWrongUsage)));
    EXPECT_EQ(3, static_cast<int>(statusOf("wrong signature")));
    EXPECT_EQ(4, static_cast<int>(statusOf("node missing")));
    EXPECT_EQ(5, static_cast<int>(statusOf("chip busy")));
    EXPECT_EQ(6, static_cast<int>(statusOf("lock held")));
}

TEST(CausesTest, AreListedInTheManualUnderTheirExitStatus)
{
    const auto manual = statusesOfManual();
    ASSERT_EQ(causeClasses().size() + 1, manual.size()); // and success
    for (const CauseClass& row : causeClasses()) {
        const std::string text = manual.at(static_cast<int>(row.status));
        EXPECT_EQ(0U, text.find(row.name)) << text;
        std::set<std::string> expected;
        for (const Cause& cause : causes()) {
            if (cause.status == row.status)
                expected.insert(cause.name);
        }
        EXPECT_EQ(expected, itemsOf(text)) << row.name;
    }
}

TEST(CausesTest, AreExplainedInTheGuide)
{
    const std::string page = contentOf("docs/guide/7-trouble.md");
    for (const Cause& cause : causes())
        EXPECT_NE(std::string::npos, page.find("`" + std::string(cause.name) + "`")) << cause.name;
}

TEST(CausesTest, HaveTheirClassesInTheHelp)
{
    const char* arguments[] = {"authchip", "--help"};
    std::ostringstream help;
    parseCommandLine(2, arguments, help, help);
    std::string text = help.str();
    std::replace(text.begin(), text.end(), '\n', ' ');
    for (const CauseClass& row : causeClasses()) {
        const std::string entry = std::to_string(static_cast<int>(row.status)) + " " + row.name;
        EXPECT_NE(std::string::npos, text.find(entry)) << entry;
    }
}

} // namespace
