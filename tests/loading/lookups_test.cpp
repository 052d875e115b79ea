// How often the library looks a logger up by its name: once per source file, while it is being loaded. This program
// defines both lookups itself, counts them and hands them on.

#include <functional>
#include <string>

#include <abstractionlibrary/debugstdiologger.h>
#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/authchipfactory.h>
#include <log4cplus/logger.h>

#include "tests/support/drivertest.h"
#include "tests/support/interposition.h"
#include "tests/support/operations.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::DebugStdioLogger;
using VorelKestrel::AL::U8;

namespace {

constexpr char kName[] = "Wexfordmallow";

// Without constructors, because the library is loaded before this program's objects are constructed.
int g_consoleLookups = 0;
int g_driverLookups = 0;

} // namespace

DebugStdioLogger* DebugStdioLogger::getInstance(const std::string& name)
{
    g_consoleLookups += name == kName ? 1 : 0;
    return nextDefinition<DebugStdioLogger*(const std::string&)>(
        "_ZN12VorelKestrel2AL16DebugStdioLogger11getInstanceERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE")(
        name);
}

log4cplus::Logger log4cplus::Logger::getInstance(const log4cplus::tstring& name)
{
    g_driverLookups += name == kName ? 1 : 0;
    return nextDefinition<log4cplus::Logger(const log4cplus::tstring&)>(
        "_ZN9log4cplus6Logger11getInstanceERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE")(name);
}

namespace {

const int g_consoleLookupsAtLoad = g_consoleLookups;
const int g_driverLookupsAtLoad = g_driverLookups;

TEST(LoggerLookupTest, HappensOnceForEachSourceFileWhileTheLibraryIsLoaded)
{
    EXPECT_EQ(3, g_consoleLookupsAtLoad); // I2C layer, register helpers, factory
    EXPECT_EQ(2, g_driverLookupsAtLoad);  // the two drivers
}

/// Every line of both logs is written.
class LookupsOfOperationsTest : public OpenBusTest
{
protected:
    LookupsOfOperationsTest()
    {
        ConsoleLog::setLevel(6);
        m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    }

    template<typename Driver>
    void expectNone(const std::vector<DriverOperation>& operations, bool protocol30)
    {
        arrangeHealthyChip(m_bus, protocol30);
        const int before = g_consoleLookups + g_driverLookups;
        Driver driver;
        for (const DriverOperation& operation : operations)
            EXPECT_EQ(0, operation.call(driver)) << operation.name;
        for (const DriverOperation& operation : operationsWithoutTransaction())
            EXPECT_EQ(0, operation.call(driver)) << operation.name;
        EXPECT_EQ(before, g_consoleLookups + g_driverLookups);
    }
};

TEST_F(LookupsOfOperationsTest, OperationsOf20BLookNoLoggerUp)
{
    expectNone<AuthChipDriver20B>(operations20B(), false);
}

TEST_F(LookupsOfOperationsTest, OperationsOf30LookNoLoggerUp)
{
    expectNone<AuthChipDriver30>(operations30(), true);
}

TEST_F(LookupsOfOperationsTest, FailedOperationsLookNoLoggerUp)
{
    m_bus.refusesWrites(FakeBus::kForever);
    const int before = g_consoleLookups + g_driverLookups;
    AuthChipDriver20B driver20B;
    AuthChipDriver30 driver30;
    for (const auto* const operations : {&operations20B(), &operations30(), &operationsWithoutTransaction()}) {
        for (const DriverOperation& operation : *operations) {
            operation.call(driver20B);
            operation.call(driver30);
        }
    }
    EXPECT_EQ(before, g_consoleLookups + g_driverLookups);
    EXPECT_THAT(lines(), ::testing::Contains(::testing::HasSubstr("unable to write dword")));
}

TEST_F(LookupsOfOperationsTest, DetectionsLookNoLoggerUp)
{
    const int before = g_consoleLookups + g_driverLookups;
    for (const U8 version : {U8{1}, U8{2}, U8{4}, U8{7}}) {
        m_bus.holds(0x00, {version});
        AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress);
    }
    EXPECT_EQ(before, g_consoleLookups + g_driverLookups);
}

} // namespace
