#include <abstractionlibrary/debugstdiologger.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/endslast.h"
#include "tests/support/objectallocations.h"

using VorelKestrel::AL::DebugStdioLogger;

namespace {

static_assert(sizeof(DebugStdioLogger) == sizeof(int), "the level and nothing else");
static_assert(!std::is_polymorphic<DebugStdioLogger>::value, "no virtual functions");
static_assert(std::is_trivially_destructible<DebugStdioLogger>::value, "no destructor of its own");

TEST(DebugStdioLoggerTest, TwoCallsWithTheSameNameReturnTheSamePointer)
{
    EXPECT_EQ(DebugStdioLogger::getInstance("one"), DebugStdioLogger::getInstance("one"));
}

TEST(DebugStdioLoggerTest, ANewNameYieldsANewLoggerAtLevelThree)
{
    auto* const known = DebugStdioLogger::getInstance("known");
    known->setLogLevel(6);
    auto* const added = DebugStdioLogger::getInstance("added");

    EXPECT_NE(known, added);
    EXPECT_EQ(3, added->getLogLevel());
}

TEST(DebugStdioLoggerTest, TheEmptyStringIsAValidName)
{
    auto* const nameless = DebugStdioLogger::getInstance("");

    ASSERT_NE(nullptr, nameless);
    EXPECT_EQ(nameless, DebugStdioLogger::getInstance(""));
}

TEST(DebugStdioLoggerTest, NamesThatDifferInCaseAreDifferentLoggers)
{
    EXPECT_NE(DebugStdioLogger::getInstance("Case"), DebugStdioLogger::getInstance("case"));
}

TEST(DebugStdioLoggerTest, ALoggerOfOnesOwnStartsAtLevelThreeAndIsNotRegistered)
{
    const auto before = DebugStdioLogger::loggerMap().size();
    DebugStdioLogger logger;

    EXPECT_EQ(3, logger.getLogLevel());
    EXPECT_EQ(before, DebugStdioLogger::loggerMap().size());
}

TEST(DebugStdioLoggerTest, EveryLevelIsKeptAsItWasSet)
{
    DebugStdioLogger logger;
    for (const int level : {INT_MIN, -1, 0, 1, 2, 3, 6, 7, INT_MAX}) {
        logger.setLogLevel(level);
        EXPECT_EQ(level, logger.getLogLevel());
    }
}

TEST(DebugStdioLoggerTest, ALevelSetThroughOnePointerIsReadThroughTheOther)
{
    DebugStdioLogger::getInstance("shared")->setLogLevel(5);

    EXPECT_EQ(5, DebugStdioLogger::getInstance("shared")->getLogLevel());
}

TEST(DebugStdioLoggerTest, TheRegistryHoldsEveryLoggerUnderItsNameInOrder)
{
    auto* const second = DebugStdioLogger::getInstance("registry-b");
    auto* const first = DebugStdioLogger::getInstance("registry-a");

    const auto found = DebugStdioLogger::loggerMap().find("registry-a");
    ASSERT_NE(DebugStdioLogger::loggerMap().end(), found);
    EXPECT_EQ(first, found->second);
    EXPECT_EQ(second, std::next(found)->second);
}

TEST(DebugStdioLoggerTest, TheLibraryRegistersItsLoggerWhenItIsLoaded)
{
    EXPECT_EQ(1U, DebugStdioLogger::loggerMap().count("Wexfordmallow"));
}

// --- the end of the process ------------------------------------------------------------------------------------------

const char* g_lastName =
    nullptr; // the text in the registry's node: too long for the node itself, so a block of its own
DebugStdioLogger* g_lastLogger = nullptr;

/// What still holds when the library's static objects, the registry among them, have been destroyed.
void useTheLoggerAfterTheRegistry()
{
    const auto expect = [](bool holds, const char* what) {
        if (!holds)
            std::fprintf(stderr, "not true: %s\n", what);
    };
    expect(wasDeleted(g_lastName), "the registry's nodes are freed");
    expect(!wasDeleted(g_lastLogger), "the loggers are not freed");
    expect(g_lastLogger->getLogLevel() == 4, "a logger keeps its level");
    g_lastLogger->setLogLevel(5);
    expect(g_lastLogger->getLogLevel() == 5, "a logger takes a new level");
    std::fprintf(stderr, "all seen\n");
}

TEST(DebugStdioLoggerDeathTest, AtExitTheRegistryFreesItsNodesAndEveryPointerStaysUsable)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a forked child could not end: log4cplus would wait for its threads
    EXPECT_EXIT(
        {
            const std::string name = "a name that is longer than what a string holds without a block of its own";
            g_lastLogger = DebugStdioLogger::getInstance(name);
            g_lastLogger->setLogLevel(4);
            g_lastName = DebugStdioLogger::loggerMap().find(name)->first.data();
            watchDeletionOf(g_lastName);
            watchDeletionOf(g_lastLogger);
            atTheVeryEnd(useTheLoggerAfterTheRegistry);
            std::exit(EXIT_SUCCESS);
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), ::testing::Eq("all seen\n"));
}

} // namespace
