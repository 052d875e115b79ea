// What happens while the library is being loaded: this program is not linked with it, so that the fake bus is there
// first.

#include <cstring>
#include <dlfcn.h>
#include <string>

#include <gtest/gtest.h>
#include <log4cplus/logger.h>

#include "tests/support/fakebus.h"

using namespace testsupport;

namespace {

/// A process that has loaded the library; the journal shows what happened meanwhile.
class LoadingTest : public ::testing::Test
{
protected:
    LoadingTest() : m_library(dlopen("libauthchipdriver.so.1", RTLD_NOW))
    {
        EXPECT_NE(nullptr, m_library) << dlerror();
    }

    template<typename Function>
    Function* function(const char* symbol) const
    {
        return reinterpret_cast<Function*>(dlsym(m_library, symbol));
    }

    Journal m_journal;
    FakeBus m_bus{m_journal};
    void* const m_library; // never closed: it lasts as long as the process
};

TEST_F(LoadingTest, OpensNoNodeAndLeavesTheLockAlone)
{
    EXPECT_EQ("", m_bus.conversation());
}

TEST_F(LoadingTest, LeavesLevelAdditivityAndAppendersOfTheLog4cplusLoggerToTheHost)
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("Wexfordmallow");

    EXPECT_EQ(log4cplus::NOT_SET_LOG_LEVEL, logger.getLogLevel());
    EXPECT_TRUE(logger.getAdditivity());
    EXPECT_TRUE(logger.getAllAppenders().empty());
}

TEST_F(LoadingTest, LeavesTheConsoleLogAtLevel3)
{
    const auto getInstance = function<void*(const std::string&)>(
        "_ZN12VorelKestrel2AL16DebugStdioLogger11getInstanceERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    const auto getLogLevel = function<int(void*)>("_ZN12VorelKestrel2AL16DebugStdioLogger11getLogLevelEv");

    EXPECT_EQ(3, getLogLevel(getInstance("Wexfordmallow")));
}

} // namespace
