#include <abstractionlibrary/debugstdiologger.h>

#include <cerrno>
#include <exception>
#include <fstream>
#include <iostream>
#include <new>
#include <regex>
#include <stdexcept>
#include <streambuf>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/authchipfactory.h>

#include "authchipdriver/consolelog.h"
#include "tests/support/assertionfailed.h"
#include "tests/support/drivertest.h"
#include "tests/support/operations.h"
#include "tests/support/throwingconsole.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::DebugStdioLogger;
using VorelKestrel::AL::U8;

namespace {

/// Makes each of the three source files that log to the console write every kind of line that it has.
class ConsoleLogTest : public BusTest
{
protected:
    std::vector<std::string> linesAtLevel(int level)
    {
        ConsoleLog::setLevel(level);
        m_journal.clear();
        m_bus.holds(0x00, {4});
        AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress);
        m_bus.failsReadsOf(0x01);
        U8 version = 0;
        AuthChipDriver30().getFirmwareVersion(version);
        return m_journal.only(Journal::Kind::Line);
    }

    DriverLog m_log{m_journal, log4cplus::ERROR_LOG_LEVEL};

    const std::string m_factoryError =
        consoleLine("DbgError", "authchipfactory", "Unknown authentication chip driver version: 4");
    const std::string m_factoryInfo =
        consoleLine("DbgInfo", "authchipfactory", "Authentication chip driver version: 4");
    const std::string m_driverError =
        consoleLine("DbgError", "authchipdriver", "unable to read byte from register 0x1 - i2cRead returns -1");
    const std::string m_busTrace = consoleLine("DbgTrace", "i2c_linuxdev", "i2cStartTransaction()");
};

TEST_F(ConsoleLogTest, ANewProcessWritesOnlyErrorLines)
{
    m_bus.holds(0x00, {4});
    AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress);

    EXPECT_THAT(m_journal.only(Journal::Kind::Line), ElementsAre(m_factoryError));
}

TEST_F(ConsoleLogTest, Level6AndUpMakeTraceInfoAndErrorLinesOfAllThreeDriverFilesAppear)
{
    for (const int level : {6, 7, 1000}) {
        EXPECT_THAT(linesAtLevel(level),
                    ::testing::IsSupersetOf({m_busTrace, m_factoryInfo, m_factoryError, m_driverError}))
            << level;
    }
}

TEST_F(ConsoleLogTest, Level1And0AndAnyNegativeValueSilenceAllOfThem)
{
    for (const int level : {1, 0, -1, -1000})
        EXPECT_THAT(linesAtLevel(level), IsEmpty()) << level;
}

TEST_F(ConsoleLogTest, Levels2And3MakeOnlyErrorLinesAppear)
{
    for (const int level : {2, 3})
        EXPECT_THAT(linesAtLevel(level), ElementsAre(m_factoryError, m_driverError)) << level;
}

TEST_F(ConsoleLogTest, Levels4And5MakeErrorAndInfoLinesAppear)
{
    for (const int level : {4, 5})
        EXPECT_THAT(linesAtLevel(level), ElementsAre(m_factoryInfo, m_factoryError, m_driverError)) << level;
}

TEST_F(ConsoleLogTest, AChangeOfTheLevelTakesEffectOnTheNextLine)
{
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    i2cStartTransaction();
    ConsoleLog::setLevel(6);
    i2cStopTransaction();

    EXPECT_THAT(m_journal.only(Journal::Kind::Line),
                ElementsAre(consoleLine("DbgTrace", "i2c_linuxdev", "i2cStopTransaction()")));
}

TEST_F(ConsoleLogTest, ALoggerOfAnotherNameDoesNotGovernTheLibrary)
{
    DebugStdioLogger::getInstance("another")->setLogLevel(6);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);

    EXPECT_THAT(m_journal.only(Journal::Kind::Line), IsEmpty());
}

/// The line of a source file of the library, counted from 1.
std::string sourceLine(const std::string& path, int number)
{
    std::ifstream source(std::string(AUTHCHIPDRIVER_SOURCE_DIR "/") + path);
    std::string line;
    while (number-- > 0)
        std::getline(source, line);
    return line;
}

TEST_F(ConsoleLogTest, ALineNamesThePathAndTheLineOfItsStatement)
{
    linesAtLevel(6);
    static const std::regex format(R"(VorelKestrel(Dbg\w+)\(([^:]+):([1-9]\d*)\) .*)");
    ASSERT_FALSE(m_console.lines().empty());
    for (const std::string& line : m_console.lines()) {
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, format)) << line;
        const std::string statement = parts[1] == "DbgTrace"  ? "DBG_TRACE"
                                      : parts[1] == "DbgInfo" ? "DBG_INFO"
                                                              : "DBG_ERROR";
        EXPECT_THAT(sourceLine(parts[2], std::stoi(parts[3])), ::testing::HasSubstr(statement)) << line;
    }
}

TEST_F(ConsoleLogTest, AfterAMessageThatLeftTheStreamInHexadecimalTheNextLineNumberIsStillDecimal)
{
    linesAtLevel(6);
    const std::vector<std::string> before = m_console.lines();
    ConsoleLog second(m_journal);
    std::cout << std::hex;
    linesAtLevel(6);

    EXPECT_EQ(before, second.lines());
}

TEST_F(ConsoleLogTest, TheSwitchToDecimalPersistsAfterTheLine)
{
    std::cout << std::hex;
    linesAtLevel(2);
    std::cout << 255 << std::endl;

    EXPECT_EQ("255", m_console.lines().back());
}

/// Counts the lines that have reached the device behind the stream.
class CountingBuffer : public std::stringbuf
{
public:
    int m_flushed = 0;

private:
    int sync() override
    {
        ++m_flushed;
        return 0;
    }
};

TEST_F(ConsoleLogTest, EveryLineIsFlushed)
{
    CountingBuffer buffer;
    std::streambuf* const before = std::cout.rdbuf(&buffer);
    m_bus.refusesToOpen(ENOENT);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    const int afterOneLine = buffer.m_flushed;
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    std::cout.rdbuf(before);

    EXPECT_EQ(1, afterOneLine);
    EXPECT_EQ(2, buffer.m_flushed);
}

TEST_F(ConsoleLogTest, AFailedStandardOutputSwallowsTheLinesSilently)
{
    m_bus.refusesToOpen(ENOENT);
    std::streambuf* const before = std::cout.rdbuf(nullptr);
    const int result = i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    std::cout.rdbuf(before);

    EXPECT_EQ(1, result);
    EXPECT_THAT(m_console.lines(), IsEmpty());
}

DebugStdioLogger* g_logger = DebugStdioLogger::getInstance("a logger for statements of the test's own");

TEST_F(ConsoleLogTest, WhileTheGateIsClosedNoOperandOfTheMessageIsEvaluated)
{
    int evaluated = 0;
    g_logger->setLogLevel(1);
    DBG_ERROR(++evaluated);
    g_logger->setLogLevel(3);
    DBG_INFO(++evaluated);
    g_logger->setLogLevel(5);
    DBG_TRACE(++evaluated);
    EXPECT_EQ(0, evaluated);

    g_logger->setLogLevel(6);
    DBG_TRACE(++evaluated);
    EXPECT_EQ(1, evaluated);
}

// The lines show what the system call left, so nothing in between may change it.
TEST_F(ConsoleLogTest, ALineOfTheI2cLayerLeavesErrnoAsItWas)
{
    m_bus.refusesToOpen(EACCES);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);

    EXPECT_EQ(EACCES, errno);
}

TEST_F(ConsoleLogTest, AnyLineMayThrowAndTheBusIsGivenBackOnce)
{
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    m_bus.holds(0x00, {7});
    AuthChipDriver30 driver;
    ConsoleLog::setLevel(9);
    int line = 0;
    for (bool hasThrown = true; hasThrown;) {
        const ThrowingConsole console(++line);
        U8 version = 0;
        try {
            driver.getDeviceVersion(version);
        } catch (const std::exception&) { // of the line, or of the stream about it
        }
        hasThrown = console.hasThrown();
        EXPECT_FALSE(m_bus.isLocked()) << "after line " << line;
    }
    EXPECT_EQ(4, line); // start, read and stop; the fourth was not written
}

// --- exceptions of the line about the end of a transaction -----------------------------------------------------------

/// An exception of the stop line, which is the last of an operation's.
class StopLineTest : public ConsoleLogTest
{
protected:
    StopLineTest()
    {
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
        ConsoleLog::setLevel(6);
    }

    template<typename Driver>
    void expectExceptionsToLeave(const std::vector<DriverOperation>& operations, bool protocol30)
    {
        arrangeHealthyChip(m_bus, protocol30);
        Driver driver;
        for (const DriverOperation& operation : operations) {
            SCOPED_TRACE(operation.name);
            const std::size_t linesBefore = m_console.lines().size();
            EXPECT_EQ(0, operation.call(driver));
            EXPECT_EQ(consoleLine("DbgTrace", "i2c_linuxdev", "i2cStopTransaction()"),
                      m_journal.only(Journal::Kind::Line).back());
            m_journal.clear();
            const ThrowingConsole console(static_cast<int>(m_console.lines().size() - linesBefore));
            EXPECT_THROW(operation.call(driver), std::bad_alloc);
            EXPECT_TRUE(console.hasThrown());
            EXPECT_EQ("unlock", m_journal.only(Journal::Kind::Call).back());
            EXPECT_FALSE(m_bus.isLocked());
        }
    }

    static constexpr int kStopLineOfADeviceId = 3; // after those of the start and of the read
};

TEST_F(StopLineTest, ThatThrowsLeavesEveryOperationOf20BWithTheBusReleased)
{
    expectExceptionsToLeave<AuthChipDriver20B>(operations20B(), false);
}

TEST_F(StopLineTest, ThatThrowsLeavesEveryOperationOf30WithTheBusReleased)
{
    expectExceptionsToLeave<AuthChipDriver30>(operations30(), true);
}

TEST_F(StopLineTest, ThatThrowsWhileAnotherExceptionIsOnItsWayIsDropped)
{
    m_bus.holds(0x04, counting(4));
    m_log.setLevel(log4cplus::DEBUG_LOG_LEVEL);
    m_log.beforeEachRecord([](const std::string&) { throw std::runtime_error("appender"); });
    AuthChipDriver30 driver;
    VorelKestrel::AL::U32 id = 0;
    const ThrowingConsole console(kStopLineOfADeviceId);

    EXPECT_THROW(driver.getDeviceID(id), std::runtime_error);
    EXPECT_TRUE(console.hasThrown());
    EXPECT_FALSE(m_bus.isLocked());
}

/// Asks for the device ID when its scope ends, as the destructor of a host may.
class AskingAtEnd
{
public:
    explicit AskingAtEnd(AuthChipDriver& driver) : m_driver(driver) {}
    ~AskingAtEnd() { m_driver.getDeviceID(m_id); }
    AskingAtEnd(const AskingAtEnd&) = delete;
    AskingAtEnd& operator=(const AskingAtEnd&) = delete;

private:
    AuthChipDriver& m_driver;
    VorelKestrel::AL::U32 m_id = 0;
};

TEST_F(StopLineTest, ThatThrowsInADestructorOfAHostWhoseOwnExceptionIsOnItsWayDoesNotEndTheProcess)
{
    m_bus.holds(0x04, counting(4));
    AuthChipDriver30 driver;
    const ThrowingConsole console(kStopLineOfADeviceId);

    EXPECT_THROW(
        {
            const AskingAtEnd atEnd(driver);
            throw std::runtime_error("the host");
        },
        std::runtime_error);
    EXPECT_TRUE(console.hasThrown());
    EXPECT_FALSE(m_bus.isLocked());
}

TEST_F(StopLineTest, ThatThrowsLeavesTheFactoryWithTheBusReleasedAndTheNextCallHasTheDriver)
{
    m_bus.holds(0x00, {7});
    const auto detect = [] { return AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress); };
    {
        constexpr int kStopLine = 5; // after those of opening, start, read and the version
        const ThrowingConsole console(kStopLine);
        EXPECT_THROW(detect(), std::bad_alloc);
        EXPECT_TRUE(console.hasThrown());
    }
    EXPECT_FALSE(m_bus.isLocked());
    m_journal.clear();

    EXPECT_NE(nullptr, detect());
    EXPECT_EQ("", m_bus.conversation());
}

using ConsoleLogDeathTest = ConsoleLogTest;

TEST_F(ConsoleLogDeathTest, GivingBackABusThatIsNotOpenStopsTheProcessAlsoWhenItsLineThrows)
{
    EXPECT_DEATH(
        {
            ConsoleLog::setLevel(6);
            const ThrowingConsole console(1);
            EXPECT_ANY_THROW(i2cStopTransaction());
        },
        assertionFailed("g_file != -1"));
}

} // namespace
