#include <authchipdriver/dbglog.h>

#include <cstdlib>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using ::testing::MatchesRegex;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

namespace {

/// A signing of protocol 3.0, the operation that has lines of all kinds.
class DriverTraceTest : public OpenBusTest
{
protected:
    DriverTraceTest()
    {
        m_bus.holds(0x20, {0, 32}).holds(0x10, {0x10}).holds(0x11, {0, 64}).holds(0x12, counting(64));
        m_journal.clear();
    }
    ~DriverTraceTest() override { std::free(m_response); }

    Error sign()
    {
        const Bytes challenge = counting(32);
        return m_driver.newSignature(challenge.data(), 32, &m_response, &m_length);
    }

    AuthChipDriver30 m_driver;
    U8* m_response = nullptr;
    int m_length = 0;
};

TEST_F(DriverTraceTest, WithTraceDisabledAndDebugEnabledASuccessfulSignatureWritesOnlyItsDebugLinesAndNeverCallsTheHook)
{
    m_log.setLevel(log4cplus::DEBUG_LOG_LEVEL);

    EXPECT_EQ(Success, sign());
    EXPECT_THAT(lines(), ElementsAre("DEBUG Challenge data written successfully", "DEBUG Challenge response length: 64",
                                     "DEBUG Successfully read challenge response"));
    EXPECT_THAT(m_log.hookCalls(), IsEmpty());
}

TEST_F(DriverTraceTest, WithTraceEnabledASuccessfulCallHasAnEntryAndAnExitLineAndCallsTheHookExactlyTwice)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    sign();

    EXPECT_EQ("TRACE Enter label: challengeLength=32", lines().front());
    EXPECT_EQ("TRACE Leave label: result=Success", lines().back());
    ASSERT_EQ(2U, m_log.hookCalls().size());
    EXPECT_EQ(m_log.hookCalls()[0].prettyFunction, m_log.hookCalls()[1].prettyFunction);
    EXPECT_THAT(m_log.hookCalls()[0].prettyFunction,
                MatchesRegex("virtual (VorelKestrel::ACD::)?Error VorelKestrel::ACD::AuthChipDriver30::newSignature\\("
                             "const .*U8 ?\\*, int, .*U8 ?\\*\\*, int ?\\*\\)"));
    EXPECT_EQ("Wexfordmallow", m_log.hookCalls()[0].component);
    EXPECT_EQ("Wexfordmallow", m_log.hookCalls()[1].component);
}

TEST_F(DriverTraceTest, WithTraceEnabledAFailingSignatureHasAnEntryLineAndAnErrorLineAndNoExitLine)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    m_bus.refusesData(0x21);
    sign();

    EXPECT_THAT(lines(), ElementsAre("TRACE Enter label: challengeLength=32", "ERROR Failed to write challenge data"));
    EXPECT_EQ(1U, m_log.hookCalls().size());
}

TEST_F(DriverTraceTest, AnOperationWithoutDetailsWritesAnEntryLineThatEndsInColonAndBlank)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    int length = 0;
    m_driver.getChallengeDataMaximumLength(length);

    EXPECT_EQ("TRACE Enter label: ", lines().front());
    EXPECT_EQ("TRACE Leave label: ", lines().back());
}

TEST_F(DriverTraceTest, TheEntryLineIsWrittenBeforeTheTransactionIsTaken)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    sign();

    EXPECT_EQ("TRACE Enter label: challengeLength=32", m_journal.all()[0]);
    EXPECT_EQ("lock", m_journal.all()[1]);
}

TEST_F(DriverTraceTest, AFailureLineIsWrittenBeforeTheTransactionIsReleased)
{
    m_bus.holds(0x10, {0});
    sign();

    const auto all = m_journal.all();
    EXPECT_EQ("ERROR Invalid status result: 0", all[all.size() - 2]);
    EXPECT_EQ("unlock", all.back());
}

TEST_F(DriverTraceTest, WithTheLoggerOffNoLineIsWrittenAndTheResultIsTheSame)
{
    m_log.setLevel(log4cplus::OFF_LOG_LEVEL);

    EXPECT_EQ(Success, sign());
    m_bus.holds(0x10, {0});
    std::free(m_response);
    EXPECT_EQ(ErrorInvalid, sign());
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(m_log.hookCalls(), IsEmpty());
}

TEST_F(DriverTraceTest, AtErrorLevelOnlyTheErrorLineIsWritten)
{
    m_log.setLevel(log4cplus::ERROR_LOG_LEVEL);
    m_bus.holds(0x10, {0});
    sign();

    EXPECT_THAT(lines(), ElementsAre("ERROR Invalid status result: 0"));
}

TEST_F(DriverTraceTest, ARecordCarriesThePathOfTheDriverAndTheSignatureOfTheOperation)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    sign();

    ASSERT_EQ(5U, m_log.records().size());
    int line = 0;
    for (const auto& record : m_log.records()) {
        EXPECT_EQ("authchipdriver/authchipdriver30.cpp", record.file);
        EXPECT_EQ(m_log.hookCalls()[0].prettyFunction, record.function);
        EXPECT_GT(record.line, line); // each its own statement, in the order of the source
        line = record.line;
    }
}

TEST_F(DriverTraceTest, OnlyTheLevelsTraceDebugAndErrorAreUsed)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    sign();
    m_bus.failsReads(FakeBus::kForever);
    U32 id = 0;
    m_driver.getDeviceID(id);

    for (const auto& record : m_log.records())
        EXPECT_THAT(record.level, ::testing::AnyOf(0, 10000, 40000));
}

TEST_F(DriverTraceTest, TheHooksResultStandsInTheLineVerbatim)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    m_log.answerHookWith([](const std::string& function) { return "<" + function.substr(0, 7) + ">"; });
    sign();

    EXPECT_EQ("TRACE Enter <virtual>: challengeLength=32", lines().front());
}

TEST_F(DriverTraceTest, BothDriversWriteToOneLogger)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    const AuthChipDriver20B other;
    const AuthChipDriver30 another;

    EXPECT_EQ(4U, lines().size());
}

} // namespace
