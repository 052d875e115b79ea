#include <authchipdriver/authchipdriver30.h>

#include <cstdlib>
#include <stdexcept>

#include "tests/support/drivertest.h"
#include "tests/support/lastwords.h"
#include "tests/support/overridingdriver.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U8;

namespace {

constexpr int kUntouchedLength = -77;
constexpr const char* kEntry = "TRACE Enter label: challengeLength=32";
const char* const kWritten = "DEBUG Challenge data written successfully";
const std::string kChallenge = "write 21 " + hex(counting(32));

std::string console(const std::string& message)
{
    return consoleLine("DbgError", "authchipdriver", message);
}

/// A chip that is ready to answer; TRACE is on.
class ChallengeResponse30Test : public OpenBusTest
{
protected:
    ChallengeResponse30Test()
    {
        m_bus.holds(0x20, {0, 32}).holds(0x10, {0x10}).holds(0x11, {0, 64}).holds(0x12, counting(64, 7));
        m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
        m_journal.clear();
    }
    ~ChallengeResponse30Test() override
    {
        if (m_response != m_marker)
            std::free(m_response);
    }

    Error sign(int challengeLength = 32)
    {
        const Bytes challenge = counting(64);
        return m_driver.newSignature(challenge.data(), challengeLength, &m_response, &m_length);
    }
    Bytes response() const { return Bytes(m_response, m_response + m_length); }

    AuthChipDriver30 m_driver;
    U8 m_byte = 0;
    U8* const m_marker = &m_byte;
    U8* m_response = m_marker;
    int m_length = kUntouchedLength;
};

// --- the exchange ----------------------------------------------------------------------------------------------------

TEST_F(ChallengeResponse30Test, WritesTheChallengeChecksItsLengthStartsAndReadsTheAnswer)
{
    EXPECT_EQ(Success, sign());
    EXPECT_EQ(64, m_length);
    EXPECT_EQ(counting(64, 7), response());
    EXPECT_THAT(m_journal.all(),
                ElementsAre(kEntry, "lock", kChallenge, kWritten, "write 20", "read 2", "write 10 01", "write 10",
                            "read 1", "write 11", "read 2", "DEBUG Challenge response length: 64", "write 12",
                            "read 64", "DEBUG Successfully read challenge response",
                            "TRACE Leave label: result=Success", "unlock"));
}

TEST_F(ChallengeResponse30Test, AChipThatRefusesItsAddressWhileItSignsIsWaitedForByTheStatusRead)
{
    m_bus.refusesRegister(0x10, 3);

    EXPECT_EQ(Success, sign());
    EXPECT_THAT(m_bus.conversation(), ::testing::HasSubstr("write 10 01; " + repeated(3, "write 10; sleep 10000") +
                                                           "; write 10; read 1; write 11; "));
}

TEST_F(ChallengeResponse30Test, ANullChallengeResponseReturnsErrorInvalidAfterAStartAndAStopWithoutTouchingTheRegisters)
{
    const Bytes challenge = counting(32);

    EXPECT_EQ(ErrorInvalid, m_driver.newSignature(challenge.data(), 32, nullptr, &m_length));
    EXPECT_EQ(kUntouchedLength, m_length);
    EXPECT_THAT(m_journal.all(),
                ElementsAre(kEntry, "lock", "ERROR Invalid parameter: challengeResponse is NULL", "unlock"));
}

TEST_F(ChallengeResponse30Test, TheNullCheckComesBeforeTheLengthCheck)
{
    const Bytes challenge = counting(32);

    EXPECT_EQ(ErrorInvalid, m_driver.newSignature(challenge.data(), 5, nullptr, &m_length));
}

class ChallengeLength30Test : public ChallengeResponse30Test, public ::testing::WithParamInterface<int>
{};

TEST_P(ChallengeLength30Test, OtherThan32ReturnsErrorI2CBeforeAnyRegisterAccessAndTheResponsePointerIsNullAfterwards)
{
    EXPECT_EQ(ErrorI2C, sign(GetParam()));
    EXPECT_EQ(nullptr, m_response);
    EXPECT_EQ(kUntouchedLength, m_length);
    const std::string length = std::to_string(GetParam());
    EXPECT_THAT(m_journal.all(),
                ElementsAre("TRACE Enter label: challengeLength=" + length, "lock",
                            "ERROR Invalid challenge length: expected=32, actual=" + length, "unlock"));
}

INSTANTIATE_TEST_SUITE_P(Lengths, ChallengeLength30Test, ::testing::Values(20, 31, 33, 0, -32), [](const auto& length) {
    return length.param < 0 ? "Minus" + std::to_string(-length.param) : std::to_string(length.param);
});

TEST_F(ChallengeResponse30Test, AChipThatReports31AfterAGoodWriteMakesTheCallReturnErrorI2CAndTheCommandIsNeverSent)
{
    m_bus.holds(0x20, {0, 31});

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_EQ(nullptr, m_response);
    EXPECT_EQ("lock; " + kChallenge + "; write 20; read 2; unlock", m_bus.conversation());
    EXPECT_THAT(lines(),
                ElementsAre(kEntry, kWritten, "ERROR Invalid challenge length returned: expected=32, actual=31"));
}

TEST_F(ChallengeResponse30Test, AReturnedChallengeLengthIsShownUnsigned)
{
    m_bus.holds(0x20, {0xff, 0xff});
    sign();

    EXPECT_THAT(lines(),
                ElementsAre(kEntry, kWritten, "ERROR Invalid challenge length returned: expected=32, actual=65535"));
}

// --- the status ------------------------------------------------------------------------------------------------------

struct StatusCase
{
    U8 status;
    Error result;
};

std::ostream& operator<<(std::ostream& stream, const StatusCase& statusCase)
{
    return stream << "status " << int{statusCase.status};
}

class ChallengeResponse30StatusTest : public ChallengeResponse30Test, public ::testing::WithParamInterface<StatusCase>
{};

TEST_P(ChallengeResponse30StatusTest, OnlyResultBits001Succeed)
{
    m_bus.holds(0x10, {GetParam().status});

    EXPECT_EQ(GetParam().result, sign());
    if (GetParam().result == Success) {
        EXPECT_THAT(lines(), ::testing::Not(::testing::Contains(::testing::StartsWith("ERROR"))));
    } else {
        EXPECT_THAT(lines(),
                    ElementsAre(kEntry, kWritten, "ERROR Invalid status result: " + std::to_string(GetParam().status)));
        EXPECT_EQ(nullptr, m_response);
        EXPECT_EQ(kUntouchedLength, m_length);
        EXPECT_EQ("lock; " + kChallenge + "; write 20; read 2; write 10 01; write 10; read 1; unlock",
                  m_bus.conversation());
        EXPECT_EQ("unlock", m_journal.all().back());
    }
}

INSTANTIATE_TEST_SUITE_P(Statuses, ChallengeResponse30StatusTest,
                         ::testing::Values(StatusCase{0x10, Success}, StatusCase{0x9f, Success},
                                           StatusCase{0x00, ErrorInvalid}, StatusCase{0x20, ErrorInvalid},
                                           StatusCase{0x30, ErrorInvalid}, StatusCase{0x40, ErrorInvalid},
                                           StatusCase{0x50, ErrorInvalid}, StatusCase{0x60, ErrorInvalid},
                                           StatusCase{0x70, ErrorInvalid}, StatusCase{0x8f, ErrorInvalid}),
                         [](const auto& test) { return "Status" + std::to_string(test.param.status); });

// --- failures --------------------------------------------------------------------------------------------------------

struct FailingSignature
{
    const char* name;
    void (*arrange)(FakeBus& bus);
    std::vector<std::string> lines; // after the entry line
    std::string conversation;       // without the lock
};

std::ostream& operator<<(std::ostream& stream, const FailingSignature& failure)
{
    return stream << failure.name;
}

class ChallengeResponse30FailureTest : public ChallengeResponse30Test,
                                       public ::testing::WithParamInterface<FailingSignature>
{};

TEST_P(ChallengeResponse30FailureTest, ReturnsErrorI2CWithItsLinesLeavesThePointerNullAndSendsNothingMore)
{
    GetParam().arrange(m_bus);

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_EQ(nullptr, m_response);
    EXPECT_EQ(kUntouchedLength, m_length);
    std::vector<std::string> expected = {kEntry};
    expected.insert(expected.end(), GetParam().lines.begin(), GetParam().lines.end());
    EXPECT_EQ(expected, lines());
    EXPECT_EQ("lock; " + GetParam().conversation + "; unlock", m_bus.conversation());
    EXPECT_EQ("unlock", m_journal.all().back());
}

std::string upTo(const std::vector<std::string>& steps, const std::string& failing)
{
    return join(steps, "; ") + (steps.empty() ? "" : "; ") + repeated(100, failing + "; sleep 10000");
}

INSTANTIATE_TEST_SUITE_P(
    Causes, ChallengeResponse30FailureTest,
    ::testing::Values(
        FailingSignature{"FewerThan32BytesAreWritten",
                         [](FakeBus& bus) { bus.takesOnly(0x21, 31); },
                         {"ERROR Failed to write challenge data"},
                         upTo({}, kChallenge)},
        FailingSignature{"ReadOfRegister20Fails",
                         [](FakeBus& bus) { bus.refusesRegister(0x20); },
                         {kWritten, console("unable to read word from register 0x20 - i2cRead returns 0"),
                          "ERROR Failed to read challenge length, error=1"},
                         upTo({kChallenge}, "write 20")},
        FailingSignature{"StartCommandFails",
                         [](FakeBus& bus) { bus.refusesData(0x10); },
                         {kWritten, console("unable to write byte to register 0x10 - i2cWrite returns -2"),
                          "ERROR Failed to write status for new signature, error=1"},
                         upTo({kChallenge, "write 20", "read 2"}, "write 10 01")},
        FailingSignature{"StatusReadFails",
                         [](FakeBus& bus) { bus.refusesRegister(0x10); },
                         {kWritten, console("unable to read byte from register 0x10 - i2cRead returns 0"),
                          "ERROR Failed to read status, error=1"},
                         upTo({kChallenge, "write 20", "read 2", "write 10 01"}, "write 10")},
        FailingSignature{"ReadOfRegister11Fails",
                         [](FakeBus& bus) { bus.refusesRegister(0x11); },
                         {kWritten, console("unable to read word from register 0x11 - i2cRead returns 0"),
                          "ERROR Failed to read challenge response length, error=1"},
                         upTo({kChallenge, "write 20", "read 2", "write 10 01", "write 10", "read 1"}, "write 11")}),
    [](const auto& failure) { return std::string(failure.param.name); });

TEST_F(ChallengeResponse30Test, MoreChallengeBytesThanThereAreIsAFailureToo)
{
    m_bus.answersWrites(std::vector<int>(100, 34));

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_EQ(nullptr, m_response);
    EXPECT_THAT(lines(), ElementsAre(kEntry, "ERROR Failed to write challenge data"));
    EXPECT_EQ("lock; " + upTo({}, kChallenge) + "; unlock", m_bus.conversation());
}

TEST_F(ChallengeResponse30Test, AResponseReadThatDeliversMoreThanTheReportedLengthIsAFailureToo)
{
    m_bus.holds(0x12, counting(65)).answersReads({FakeBus::kAsItIs, FakeBus::kAsItIs, FakeBus::kAsItIs, 65});

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_EQ(nullptr, m_response);
    EXPECT_EQ(64, m_length);
    EXPECT_THAT(lines(), ElementsAre(kEntry, kWritten, "DEBUG Challenge response length: 64",
                                     "ERROR Failed to read challenge response data"));
}

TEST_F(ChallengeResponse30Test, TheLengthIsStoredAfterItsDebugLine)
{
    int lengthAtTheLine = 0;
    m_log.beforeEachRecord([&](const std::string& message) {
        if (message == "Challenge response length: 64")
            lengthAtTheLine = m_length;
    });

    EXPECT_EQ(Success, sign());
    EXPECT_EQ(kUntouchedLength, lengthAtTheLine);
    EXPECT_EQ(64, m_length);
}

TEST_F(ChallengeResponse30Test, AShortResponseReadFreesTheBlockLeavesThePointerNullAndTheLengthAtTheReportedValue)
{
    m_bus.deliversOnly(0x12, 63);

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_EQ(nullptr, m_response);
    EXPECT_EQ(64, m_length);
    EXPECT_EQ((std::vector<std::string>{kEntry, kWritten, "DEBUG Challenge response length: 64",
                                        "ERROR Failed to read challenge response data"}),
              lines());
    EXPECT_EQ("unlock", m_journal.all().back());
}

TEST_F(ChallengeResponse30Test, AReportedLengthOf0ReturnsSuccessWithTheResultOfMalloc0AndALengthOf0)
{
    m_bus.holds(0x11, {0, 0});

    EXPECT_EQ(Success, sign());
    EXPECT_EQ(0, m_length);
    EXPECT_NE(m_marker, m_response); // freed by the fixture, as by a caller
    EXPECT_THAT(m_bus.conversation(), ::testing::EndsWith("write 12; read 0; unlock"));
}

TEST_F(ChallengeResponse30Test, AReportedLengthOf65535IsReadWhole)
{
    m_bus.holds(0x11, {0xff, 0xff}).holds(0x12, counting(65535));

    EXPECT_EQ(Success, sign());
    EXPECT_EQ(counting(65535), response());
}

using ChallengeResponse30DeathTest = ChallengeResponse30Test;

TEST_F(ChallengeResponse30DeathTest, ANullChallengeResponseLengthIsNotCaughtAndFaultsWhenTheLengthIsStored)
{
    const Bytes challenge = counting(32);

    EXPECT_EXIT(
        {
            m_journal.echo();
            m_driver.newSignature(challenge.data(), 32, &m_response, nullptr);
        },
        diedOfTheAccess,
        lastWords({kEntry, "lock", kChallenge, kWritten, "write 20", "read 2", "write 10 01", "write 10", "read 1",
                   "write 11", "read 2", "DEBUG Challenge response length: 64"}));
}

// --- register helpers of a host --------------------------------------------------------------------------------------

/// A driver with the host's register helpers, on a bus that signs.
class ChallengeResponse30HelpersTest : public ChallengeResponse30Test
{
protected:
    ChallengeResponse30HelpersTest()
    {
        m_overriding.holds(0x20, 32).holds(0x10, 0x10).holds(0x11, 5);
        m_journal.clear();
    }
    Error sign()
    {
        const Bytes challenge = counting(32);
        return m_overriding.newSignature(challenge.data(), 32, &m_response, &m_length);
    }

    OverridingDriver<AuthChipDriver30> m_overriding{m_journal};
};

TEST_F(ChallengeResponse30HelpersTest, AreAllCalledThroughTheirVirtualSlots)
{
    EXPECT_EQ(Success, sign());
    EXPECT_EQ(counting(5, 7), response());
    EXPECT_THAT(m_journal.all(), ElementsAre(kEntry, "lock", kChallenge, kWritten, "readWord 20", "writeByte 10 1",
                                             "readByte 10", "readWord 11", "DEBUG Challenge response length: 5",
                                             "write 12", "read 5", "DEBUG Successfully read challenge response",
                                             "TRACE Leave label: result=Success", "unlock"));
}

struct FailingHelper
{
    const char* name;
    const char* call;
    const char* line;
};

std::ostream& operator<<(std::ostream& stream, const FailingHelper& helper)
{
    return stream << helper.name;
}

class ChallengeResponse30FailingHelperTest : public ChallengeResponse30HelpersTest,
                                             public ::testing::WithParamInterface<FailingHelper>
{};

TEST_P(ChallengeResponse30FailingHelperTest, GivesItsVeryErrorAsTheResultAndEndsTheExchange)
{
    m_overriding.answers(GetParam().call, ErrorInvalid);

    EXPECT_EQ(ErrorInvalid, sign());
    EXPECT_EQ(nullptr, m_response);
    EXPECT_EQ(kUntouchedLength, m_length);
    const auto all = m_journal.all();
    ASSERT_GT(all.size(), 3U);
    EXPECT_THAT(std::vector<std::string>(all.end() - 3, all.end()),
                ElementsAre(GetParam().call, std::string("ERROR ") + GetParam().line + ", error=2", "unlock"));
}

INSTANTIATE_TEST_SUITE_P(
    Helpers, ChallengeResponse30FailingHelperTest,
    ::testing::Values(FailingHelper{"ForTheChallengeLength", "readWord 20", "Failed to read challenge length"},
                      FailingHelper{"ForTheStartCommand", "writeByte 10 1", "Failed to write status for new signature"},
                      FailingHelper{"ForTheStatus", "readByte 10", "Failed to read status"},
                      FailingHelper{"ForTheResponseLength", "readWord 11", "Failed to read challenge response length"}),
    [](const auto& test) { return std::string(test.param.name); });

// --- exceptions ------------------------------------------------------------------------------------------------------

TEST_F(ChallengeResponse30Test,
       AnExceptionAfterTheBlockWasAllocatedFreesItLeavesThePointerNullAndReleasesTheTransactionOnce)
{
    for (const char* const line : {"Successfully read", "Leave "}) {
        m_log.beforeEachRecord([line](const std::string& message) {
            if (message.rfind(line, 0) == 0)
                throw std::runtime_error("appender");
        });
        m_journal.clear();
        m_response = m_marker;

        EXPECT_THROW(sign(), std::runtime_error) << line;
        EXPECT_EQ(nullptr, m_response) << line;
        EXPECT_THAT(m_bus.conversation(), ::testing::EndsWith("read 64; unlock")) << line;
        EXPECT_FALSE(m_bus.isLocked()) << line;
    }
}

TEST_F(ChallengeResponse30Test, AnExceptionFromTheLineOfAShortReadFreesTheBlockToo)
{
    m_bus.deliversOnly(0x12, 1);
    m_log.beforeEachRecord([](const std::string& message) {
        if (message == "Failed to read challenge response data")
            throw std::runtime_error("appender");
    });

    EXPECT_THROW(sign(), std::runtime_error);
    EXPECT_EQ(nullptr, m_response);
    EXPECT_FALSE(m_bus.isLocked());
}

TEST_F(ChallengeResponse30Test, AnExceptionBeforeTheBlockReleasesTheTransaction)
{
    m_log.beforeEachRecord([](const std::string& message) {
        if (message == "Challenge data written successfully")
            throw std::runtime_error("appender");
    });

    EXPECT_THROW(sign(), std::runtime_error);
    EXPECT_EQ(nullptr, m_response);
    EXPECT_EQ("lock; " + kChallenge + "; unlock", m_bus.conversation());
}

// --- the certificate's last page -------------------------------------------------------------------------------------

TEST_F(ChallengeResponse30Test, WithLength1500TenPagesAreReadTheResultIsErrorI2CAndLengthBecomes1280)
{
    m_bus.holdsCertificate(counting(1500));
    Bytes buffer(1500);
    int length = 1500;

    EXPECT_EQ(ErrorI2C, m_driver.getAccessoryCertificateData(buffer.data(), length));
    EXPECT_EQ(1280, length);
    EXPECT_THAT(m_bus.conversation(), ::testing::EndsWith("write 3a; read 128; unlock"));
    const auto all = lines();
    EXPECT_EQ("ERROR Read failed: read=128, toRead=128, page=11", all[all.size() - 3]);
    EXPECT_EQ("ERROR Incomplete read: expected=1500, actual=1280", all[all.size() - 2]);
}

} // namespace
