#include "tool/commands/table.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tool/commands/commandline.h"

namespace {

using namespace VorelKestrel::Tool;

TEST(CommandTableTest, NamesEachCommandOnceAndExplainsIt)
{
    std::set<std::string> names;
    for (const CommandRow& row : commandTable()) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_STRNE("", row.help) << row.name;
    }
}

TEST(CommandTableTest, HasARowForEachGroupBeforeItsCommands)
{
    std::set<std::string> groups;
    for (const CommandRow& row : commandTable()) {
        const std::string name = row.name;
        const auto blank = name.find(' ');
        if (row.make == nullptr)
            groups.insert(name);
        if (blank != std::string::npos) {
            EXPECT_EQ(1, groups.count(name.substr(0, blank))) << name;
        }
    }
}

TEST(CommandTableTest, ExplainsEachCommandInItsHelp)
{
    for (const CommandRow& row : commandTable()) {
        std::istringstream words(row.name);
        std::vector<std::string> arguments = {"authchip"};
        for (std::string word; words >> word;)
            arguments.push_back(word);
        arguments.emplace_back("--help");
        std::vector<const char*> argv(arguments.size());
        std::transform(arguments.begin(), arguments.end(), argv.begin(),
                       [](const std::string& argument) { return argument.c_str(); });

        std::ostringstream out;
        std::ostringstream err;
        const CommandLine line = parseCommandLine(static_cast<int>(argv.size()), argv.data(), out, err);
        EXPECT_EQ(nullptr, line.row);
        EXPECT_EQ(0, out.str().find(row.help)) << out.str();
        EXPECT_EQ("", err.str());
    }
}

TEST(CommandTableTest, GivesTheCommandLineItsRowAndCommand)
{
    const char* arguments[] = {"authchip", "--device", "/dev/i2c-1", "--address", "0x2a", "info"};
    std::ostringstream silent;
    const CommandLine line = parseCommandLine(static_cast<int>(std::size(arguments)), arguments, silent, silent);
    ASSERT_NE(nullptr, line.row);
    EXPECT_STREQ("info", line.row->name);
    EXPECT_NE(nullptr, line.command);
    EXPECT_EQ(0x2a, line.options.location.address);
}

} // namespace
