// What the library leaves behind when the static objects of the process are destroyed.

#include <cstdio>
#include <cstdlib>
#include <string>

#include <abstractionlibrary/debugstdiologger.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/endslast.h"
#include "tests/support/objectallocations.h"

using namespace testsupport;
using VorelKestrel::AL::DebugStdioLogger;

namespace {

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

TEST(UnloadingDeathTest, AtExitTheRegistryFreesItsNodesAndEveryPointerStaysUsable)
{
    GTEST_FLAG_SET(death_test_style,
                   "threadsafe"); // a forked child could not end: log4cplus would wait for its threads
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
