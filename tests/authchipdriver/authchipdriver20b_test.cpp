#include <authchipdriver/authchipdriver20b.h>

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
constexpr const char* kEntry = "TRACE Enter label: challengeLength=20";
const char* const kSignatureDataLength = "write 11 00 80";
const char* const kChallengeLength = "write 20 00 14";
const std::string kChallenge = "write 21 " + hex(counting(20));

std::string console(const std::string& message)
{
    return consoleLine("DbgError", "authchipdriver", message);
}

/// A chip that is ready to sign; TRACE is on.
class Signature20BTest : public OpenBusTest
{
protected:
    Signature20BTest()
    {
        m_bus.holds(0x10, {0x10}).holds(0x11, {0, 128}).holds(0x12, counting(128, 7));
        m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
        m_journal.clear();
    }
    ~Signature20BTest() override
    {
        if (m_signature != m_marker)
            std::free(m_signature);
    }

    Error sign(int challengeLength = 20)
    {
        const Bytes challenge = counting(64);
        return m_driver.newSignature(challenge.data(), challengeLength, &m_signature, &m_length);
    }
    Bytes signature() const { return Bytes(m_signature, m_signature + m_length); }
    bool outputsAreUntouched() const { return m_signature == m_marker && m_length == kUntouchedLength; }

    AuthChipDriver20B m_driver;
    U8 m_byte = 0;
    U8* const m_marker = &m_byte;
    U8* m_signature = m_marker;
    int m_length = kUntouchedLength;
};

// --- the exchange ----------------------------------------------------------------------------------------------------

TEST_F(Signature20BTest, AReportedLengthOf128WithAFullReadReturnsSuccessABlockOf128BytesAnd128)
{
    EXPECT_EQ(Success, sign());
    EXPECT_EQ(128, m_length);
    EXPECT_EQ(counting(128, 7), signature());
    EXPECT_THAT(m_journal.all(), ElementsAre(kEntry, "lock", kSignatureDataLength, kChallengeLength, kChallenge,
                                             "write 10 01", "write 10", "read 1", "write 11", "read 2", "write 12",
                                             "read 128", "DEBUG Successfully generated signature, length=128",
                                             "TRACE Leave label: result=0", "unlock"));
}

TEST_F(Signature20BTest, AChallengeOf32BytesSendsOnlyItsFirst20BytesWhileTheEntryLineShows32)
{
    EXPECT_EQ(Success, sign(32));
    EXPECT_EQ("TRACE Enter label: challengeLength=32", lines().front());
    EXPECT_THAT(m_journal.all(), ::testing::IsSupersetOf({std::string(kChallengeLength), kChallenge}));
}

TEST_F(Signature20BTest, AChallengeOfExactly20BytesIsSentWhole)
{
    EXPECT_EQ(Success, sign(20));
    EXPECT_THAT(m_journal.all(), ::testing::IsSupersetOf({std::string("write 20 00 14"), kChallenge}));
}

TEST_F(Signature20BTest, AChallengeOf5BytesIsSentWhole)
{
    EXPECT_EQ(Success, sign(5));
    EXPECT_THAT(m_journal.all(),
                ::testing::IsSupersetOf({std::string("write 20 00 05"), std::string("write 21 00 01 02 03 04")}));
}

TEST_F(Signature20BTest, AChallengeLengthOf0SendsTheRegisterByteAloneAndGoesOnToTheStartCommand)
{
    EXPECT_EQ(Success, sign(0));
    EXPECT_EQ("lock; write 11 00 80; write 20 00 00; write 21; write 10 01; write 10; read 1; write 11; read 2; "
              "write 12; read 128; unlock",
              m_bus.conversation());
}

TEST_F(Signature20BTest, AChipThatRefusesItsAddressWhileItSignsIsWaitedForByTheStatusRead)
{
    m_bus.refusesRegister(0x10, 3);

    EXPECT_EQ(Success, sign());
    EXPECT_THAT(m_bus.conversation(), ::testing::HasSubstr("write 10 01; " + repeated(3, "write 10; sleep 10000") +
                                                           "; write 10; read 1; write 11; "));
}

using Signature20BDeathTest = Signature20BTest;

TEST_F(Signature20BDeathTest, ANegativeChallengeLengthReachesWriteWordWhoseRangeAssertionStopsTheProcess)
{
    EXPECT_DEATH(
        {
            m_journal.echo();
            sign(-1);
        },
        assertionFailedAfter({"TRACE Enter label: challengeLength=-1", "lock", kSignatureDataLength},
                             "(value&0xffff0000) == 0"));
}

// None of the three pointers is checked: the exchange continues until one is needed.
TEST_F(Signature20BDeathTest, ANullSignaturePointerFaultsWhenTheBlockIsStored)
{
    const Bytes challenge = counting(20);
    EXPECT_EXIT(
        {
            m_journal.echo();
            m_driver.newSignature(challenge.data(), 20, nullptr, &m_length);
        },
        diedOfTheAccess,
        lastWords({kEntry, "lock", kSignatureDataLength, kChallengeLength, kChallenge, "write 10 01", "write 10",
                   "read 1", "write 11", "read 2"}));
}

TEST_F(Signature20BDeathTest, ANullSignatureLengthPointerFaultsWhenTheLengthIsStored)
{
    const Bytes challenge = counting(20);
    EXPECT_EXIT(
        {
            m_journal.echo();
            m_driver.newSignature(challenge.data(), 20, &m_signature, nullptr);
        },
        diedOfTheAccess,
        lastWords({kEntry, "lock", kSignatureDataLength, kChallengeLength, kChallenge, "write 10 01", "write 10",
                   "read 1", "write 11", "read 2"}));
}

TEST_F(Signature20BDeathTest, ANullChallengeFaultsWhenItIsSent)
{
    EXPECT_EXIT(
        {
            m_journal.echo();
            m_driver.newSignature(nullptr, 20, &m_signature, &m_length);
        },
        diedOfTheAccess, lastWords({kEntry, "lock", kSignatureDataLength, kChallengeLength}));
}

TEST_F(Signature20BTest, ANullChallengeOfLength0IsSigned)
{
    EXPECT_EQ(Success, m_driver.newSignature(nullptr, 0, &m_signature, &m_length));
    EXPECT_EQ(counting(128, 7), signature());
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

class Signature20BStatusTest : public Signature20BTest, public ::testing::WithParamInterface<StatusCase>
{};

TEST_P(Signature20BStatusTest, OnlyResultBits001Succeed)
{
    m_bus.holds(0x10, {GetParam().status});

    EXPECT_EQ(GetParam().result, sign());
    const std::string errorLine = "ERROR Invalid status result: " + std::to_string(GetParam().status);
    if (GetParam().result == Success) {
        EXPECT_THAT(lines(), ::testing::Not(::testing::Contains(::testing::StartsWith("ERROR"))));
    } else {
        EXPECT_THAT(lines(), ElementsAre(kEntry, errorLine));
        EXPECT_TRUE(outputsAreUntouched());
        EXPECT_EQ("lock; write 11 00 80; write 20 00 14; " + kChallenge + "; write 10 01; write 10; read 1; unlock",
                  m_bus.conversation());
        EXPECT_EQ("unlock", m_journal.all().back());
    }
}

INSTANTIATE_TEST_SUITE_P(Statuses, Signature20BStatusTest,
                         ::testing::Values(StatusCase{0x10, Success}, StatusCase{0x9f, Success},
                                           StatusCase{0x90, Success}, StatusCase{0x1f, Success},
                                           StatusCase{0x00, ErrorInvalid}, StatusCase{0x20, ErrorInvalid},
                                           StatusCase{0x30, ErrorInvalid}, StatusCase{0x40, ErrorInvalid},
                                           StatusCase{0x50, ErrorInvalid}, StatusCase{0x60, ErrorInvalid},
                                           StatusCase{0x70, ErrorInvalid}, StatusCase{0x8f, ErrorInvalid}),
                         [](const auto& test) { return "Status" + std::to_string(test.param.status); });

TEST_F(Signature20BTest, InvalidStatusLinesEndWithTheWholeByteInDecimal)
{
    std::vector<std::string> last;
    for (const U8 status : {U8{0x00}, U8{0x20}, U8{0x70}}) {
        m_bus.holds(0x10, {status});
        sign();
        last.push_back(lines().back());
    }

    EXPECT_THAT(last, ElementsAre("ERROR Invalid status result: 0", "ERROR Invalid status result: 32",
                                  "ERROR Invalid status result: 112"));
}

// --- failures --------------------------------------------------------------------------------------------------------

struct FailingSignature
{
    const char* name;
    void (*arrange)(FakeBus& bus);
    std::vector<std::string> lines; // after the entry line
    std::string conversation;       // from the failing step on, without the lock
};

std::ostream& operator<<(std::ostream& stream, const FailingSignature& failure)
{
    return stream << failure.name;
}

class Signature20BFailureTest : public Signature20BTest, public ::testing::WithParamInterface<FailingSignature>
{};

TEST_P(Signature20BFailureTest, ReturnsErrorI2CWithItsLinesLeavesTheOutputsAndSendsNothingMore)
{
    GetParam().arrange(m_bus);

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_TRUE(outputsAreUntouched());
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
    Causes, Signature20BFailureTest,
    ::testing::Values(
        FailingSignature{"WriteOfRegister11Fails",
                         [](FakeBus& bus) { bus.refusesData(0x11); },
                         {console("unable to write word to register 0x11 - i2cWrite returns -2"),
                          "ERROR Failed to write signature data length, error=1"},
                         upTo({}, kSignatureDataLength)},
        FailingSignature{"WriteOfRegister20Fails",
                         [](FakeBus& bus) { bus.refusesData(0x20); },
                         {console("unable to write word to register 0x20 - i2cWrite returns -2"),
                          "ERROR Failed to write challenge length, error=1"},
                         upTo({kSignatureDataLength}, kChallengeLength)},
        FailingSignature{"FewerChallengeBytesAreWritten",
                         [](FakeBus& bus) { bus.takesOnly(0x21, 10); },
                         {"ERROR Failed to write challenge data"},
                         upTo({kSignatureDataLength, kChallengeLength}, kChallenge)},
        FailingSignature{"StartCommandFails",
                         [](FakeBus& bus) { bus.refusesData(0x10); },
                         {console("unable to write byte to register 0x10 - i2cWrite returns -2"),
                          "ERROR Failed to write status for new signature, error=1"},
                         upTo({kSignatureDataLength, kChallengeLength, kChallenge}, "write 10 01")},
        FailingSignature{"StatusReadFails",
                         [](FakeBus& bus) { bus.refusesRegister(0x10); },
                         {console("unable to read byte from register 0x10 - i2cRead returns 0"),
                          "ERROR Failed to read status, error=1"},
                         upTo({kSignatureDataLength, kChallengeLength, kChallenge, "write 10 01"}, "write 10")},
        FailingSignature{"ReadOfRegister11Fails",
                         [](FakeBus& bus) { bus.refusesRegister(0x11); },
                         {console("unable to read word from register 0x11 - i2cRead returns 0"),
                          "ERROR Failed to read signature length, error=1"},
                         upTo({kSignatureDataLength, kChallengeLength, kChallenge, "write 10 01", "write 10", "read 1"},
                              "write 11")}),
    [](const auto& failure) { return std::string(failure.param.name); });

TEST_F(Signature20BTest, MoreChallengeBytesThanThereAreIsAFailureToo)
{
    m_bus.answersWrites([] {
        std::vector<int> results(2, FakeBus::kAsItIs);
        results.resize(2 + 100, 22);
        return results;
    }());

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_TRUE(outputsAreUntouched());
    EXPECT_THAT(lines(), ElementsAre(kEntry, "ERROR Failed to write challenge data"));
    EXPECT_EQ("lock; " + upTo({kSignatureDataLength, kChallengeLength}, kChallenge) + "; unlock", m_bus.conversation());
}

TEST_F(Signature20BTest, ASignatureReadThatDeliversMoreThanTheReportedLengthIsAFailureToo)
{
    m_bus.holds(0x12, counting(129)).answersReads({FakeBus::kAsItIs, FakeBus::kAsItIs, 129});

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_EQ(nullptr, m_signature);
    EXPECT_EQ(128, m_length);
    EXPECT_THAT(lines(), ElementsAre(kEntry, "ERROR Failed to read signature data"));
}

TEST_F(Signature20BTest, AShortSignatureReadFreesTheBlockLeavesThePointerNullAndTheLengthAtTheReportedValue)
{
    m_bus.deliversOnly(0x12, 127);

    EXPECT_EQ(ErrorI2C, sign());
    EXPECT_EQ(nullptr, m_signature);
    EXPECT_EQ(128, m_length);
    EXPECT_EQ((std::vector<std::string>{kEntry, "ERROR Failed to read signature data"}), lines());
    EXPECT_EQ("unlock", m_journal.all().back());
}

TEST_F(Signature20BTest, AReportedLengthOf0ReturnsSuccessWithTheResultOfMalloc0AndALengthOf0)
{
    m_bus.holds(0x11, {0, 0});

    EXPECT_EQ(Success, sign());
    EXPECT_EQ(0, m_length);
    EXPECT_NE(m_marker, m_signature); // freed by the fixture, as by a caller
    EXPECT_THAT(lines(), ::testing::Contains("DEBUG Successfully generated signature, length=0"));
    EXPECT_THAT(m_bus.conversation(), ::testing::EndsWith("write 12; read 0; unlock"));
}

TEST_F(Signature20BTest, AReportedLengthOf65535IsReadWhole)
{
    m_bus.holds(0x11, {0xff, 0xff}).holds(0x12, counting(65535));

    EXPECT_EQ(Success, sign());
    EXPECT_EQ(65535, m_length);
    EXPECT_EQ(counting(65535), signature());
}

TEST_F(Signature20BTest, WithTraceDisabledNoCallOfTheHookIsMade)
{
    const auto before = m_log.hookCalls().size();
    m_log.setLevel(log4cplus::DEBUG_LOG_LEVEL);
    sign();
    m_bus.holds(0x10, {0});
    std::free(m_signature);
    m_signature = m_marker;
    sign();

    EXPECT_EQ(before, m_log.hookCalls().size());
}

// --- register helpers of a host --------------------------------------------------------------------------------------

/// A driver with the host's register helpers, on a bus that signs.
class Signature20BHelpersTest : public Signature20BTest
{
protected:
    Signature20BHelpersTest()
    {
        m_overriding.holds(0x10, 0x10).holds(0x11, 5);
        m_journal.clear();
    }
    Error sign()
    {
        const Bytes challenge = counting(20);
        return m_overriding.newSignature(challenge.data(), 20, &m_signature, &m_length);
    }

    OverridingDriver<AuthChipDriver20B> m_overriding{m_journal};
};

TEST_F(Signature20BHelpersTest, AreAllCalledThroughTheirVirtualSlots)
{
    EXPECT_EQ(Success, sign());
    EXPECT_EQ(counting(5, 7), signature());
    EXPECT_THAT(m_journal.all(), ElementsAre(kEntry, "lock", "writeWord 11 128", "writeWord 20 20", kChallenge,
                                             "writeByte 10 1", "readByte 10", "readWord 11", "write 12", "read 5",
                                             "DEBUG Successfully generated signature, length=5",
                                             "TRACE Leave label: result=0", "unlock"));
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

class Signature20BFailingHelperTest : public Signature20BHelpersTest,
                                      public ::testing::WithParamInterface<FailingHelper>
{};

TEST_P(Signature20BFailingHelperTest, GivesItsVeryErrorAsTheResultAndEndsTheExchange)
{
    m_overriding.answers(GetParam().call, ErrorInvalid);

    EXPECT_EQ(ErrorInvalid, sign());
    EXPECT_TRUE(outputsAreUntouched());
    const auto all = m_journal.all();
    ASSERT_GT(all.size(), 3U);
    EXPECT_THAT(std::vector<std::string>(all.end() - 3, all.end()),
                ElementsAre(GetParam().call, std::string("ERROR ") + GetParam().line + ", error=2", "unlock"));
}

INSTANTIATE_TEST_SUITE_P(
    Helpers, Signature20BFailingHelperTest,
    ::testing::Values(FailingHelper{"ForTheSignatureDataLength", "writeWord 11 128",
                                    "Failed to write signature data length"},
                      FailingHelper{"ForTheChallengeLength", "writeWord 20 20", "Failed to write challenge length"},
                      FailingHelper{"ForTheStartCommand", "writeByte 10 1", "Failed to write status for new signature"},
                      FailingHelper{"ForTheStatus", "readByte 10", "Failed to read status"},
                      FailingHelper{"ForTheSignatureLength", "readWord 11", "Failed to read signature length"}),
    [](const auto& test) { return std::string(test.param.name); });

// --- exceptions ------------------------------------------------------------------------------------------------------

TEST_F(Signature20BTest, AnExceptionAfterTheBlockWasAllocatedFreesItLeavesThePointerNullAndReleasesTheTransactionOnce)
{
    for (const char* const line : {"Successfully generated", "Leave "}) {
        m_log.beforeEachRecord([line](const std::string& message) {
            if (message.rfind(line, 0) == 0)
                throw std::runtime_error("appender");
        });
        m_journal.clear();
        m_signature = m_marker;

        EXPECT_THROW(sign(), std::runtime_error) << line;
        EXPECT_EQ(nullptr, m_signature) << line;
        EXPECT_THAT(m_bus.conversation(), ::testing::EndsWith("read 128; unlock")) << line;
        EXPECT_FALSE(m_bus.isLocked()) << line;
    }
}

TEST_F(Signature20BTest, AnExceptionFromTheLineOfAShortReadFreesTheBlockToo)
{
    m_bus.deliversOnly(0x12, 1);
    m_log.beforeEachRecord([](const std::string& message) {
        if (message == "Failed to read signature data")
            throw std::runtime_error("appender");
    });

    EXPECT_THROW(sign(), std::runtime_error);
    EXPECT_EQ(nullptr, m_signature);
    EXPECT_FALSE(m_bus.isLocked());
}

TEST_F(Signature20BTest, AnExceptionBeforeTheBlockLeavesTheOutputsAndReleasesTheTransaction)
{
    m_bus.refusesData(0x20);
    m_log.beforeEachRecord([](const std::string& message) {
        if (message.rfind("Failed", 0) == 0)
            throw std::runtime_error("appender");
    });

    EXPECT_THROW(sign(), std::runtime_error);
    EXPECT_TRUE(outputsAreUntouched());
    EXPECT_FALSE(m_bus.isLocked());
}

// --- the certificate's last page -------------------------------------------------------------------------------------

TEST_F(Signature20BTest, WithLength1920FifteenPagesOf128BytesAreReadAndTheResultIsSuccess)
{
    m_bus.holdsCertificate(counting(1920));
    Bytes buffer(1920);
    int length = 1920;

    EXPECT_EQ(Success, m_driver.getAccessoryCertificateData(buffer.data(), length));
    EXPECT_EQ(1920, length);
    EXPECT_EQ(counting(1920), buffer);
    EXPECT_THAT(m_bus.conversation(), ::testing::EndsWith("write 3f; read 128; unlock"));
    const auto all = lines();
    EXPECT_EQ("ERROR Read failed: read=128, toRead=128, page=16", all[all.size() - 3]);
    EXPECT_EQ("DEBUG Successfully read all data: 1920 bytes", all[all.size() - 2]);
}

} // namespace
