#include <abstractionlibrary/debugstdiologger.h>

#include <climits>
#include <map>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/support/objectallocations.h"

using namespace testsupport;
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

TEST(DebugStdioLoggerTest, ANewNameMakesOneLoggerAndAKnownOneNone)
{
    const ObjectAllocations allocations;
    DebugStdioLogger::getInstance("new");
    EXPECT_EQ(1, allocations.made(sizeof(DebugStdioLogger)));

    DebugStdioLogger::getInstance("new");
    EXPECT_EQ(1, allocations.made(sizeof(DebugStdioLogger)));
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

} // namespace
