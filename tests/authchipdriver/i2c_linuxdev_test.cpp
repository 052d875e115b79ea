#include <authchipdriver/i2c.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <iostream>

#include "common/patience.h"
#include "tests/support/drivertest.h"
#include "tests/support/lastwords.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U8;

namespace {

constexpr int kMoreThanAHundred = 150; // then they succeed, so that one who goes on comes to an end

std::string trace(const std::string& message)
{
    return consoleLine("DbgTrace", "i2c_linuxdev", message);
}

std::string nodeError(const std::string& message)
{
    return consoleLine("DbgError", "i2c_linuxdev", message);
}

class I2cInitTest : public BusTest
{};

class I2cReadTest : public OpenBusTest
{
protected:
    int read(U8 reg, int length) { return i2cRead(reg, length, m_data.data()); }

    Bytes m_data = Bytes(256, 0xee);
};

class I2cWriteTest : public OpenBusTest
{
protected:
    int write(U8 reg, const Bytes& data) { return i2cWrite(reg, static_cast<int>(data.size()), data.data()); }
};

class I2cTransactionTest : public OpenBusTest
{};

// --- opening ---------------------------------------------------------------------------------------------------------

TEST_F(I2cInitTest, OpensTheDeviceForReadingAndWritingAndSelectsTheAddress)
{
    EXPECT_EQ(0, i2cInit("/dev/i2c-3", 0x11));
    EXPECT_EQ("open /dev/i2c-3; select 11", m_bus.conversation());
}

TEST_F(I2cInitTest, HandsTheAddressOnNeitherShiftedNorMasked)
{
    i2cInit(FakeBus::kDevice, 0x1234);

    EXPECT_EQ("open /dev/i2c-7; select 1234", m_bus.conversation());
}

TEST_F(I2cInitTest, OnANodeThatDoesNotExistReturns1WithALine)
{
    m_bus.refusesToOpen(ENOENT);

    EXPECT_EQ(1, i2cInit(FakeBus::kDevice, FakeBus::kAddress));
    EXPECT_THAT(m_journal.all(), ElementsAre("open /dev/i2c-7", nodeError("Unable to open /dev/i2c-7")));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(I2cInitTest, OnAnAddressThatTheIoctlRefusesReturns1WithALineAndClosesTheNode)
{
    m_bus.refusesAddress(EBUSY);

    EXPECT_EQ(1, i2cInit(FakeBus::kDevice, 0xAB));
    EXPECT_THAT(m_journal.all(),
                ElementsAre("open /dev/i2c-7", "select ab", nodeError("Unable to select address 0xab"), "close"));
    EXPECT_THAT(m_bus.openDescriptors(), IsEmpty());
    EXPECT_EQ(EBUSY, errno);
}

TEST_F(I2cInitTest, TakesEveryResultOfOpenThatIsNotNegativeForADescriptor)
{
    m_bus.answersOpen(0);

    EXPECT_EQ(0, i2cInit(FakeBus::kDevice, FakeBus::kAddress));
    EXPECT_EQ("open /dev/i2c-7; select 2a", m_bus.conversation());
    i2cClose();
}

TEST_F(I2cInitTest, TakesEveryNegativeResultOfOpenForARefusal)
{
    m_bus.answersOpen(-2);

    EXPECT_EQ(1, i2cInit(FakeBus::kDevice, FakeBus::kAddress));
    EXPECT_THAT(m_journal.all(), ElementsAre("open /dev/i2c-7", nodeError("Unable to open /dev/i2c-7")));
}

TEST_F(I2cInitTest, TakesEveryResultOfTheIoctlThatIsNotNegativeForConsent)
{
    m_bus.answersSelect(1);

    EXPECT_EQ(0, i2cInit(FakeBus::kDevice, FakeBus::kAddress));
    EXPECT_EQ("open /dev/i2c-7; select 2a", m_bus.conversation());
}

TEST_F(I2cInitTest, TakesEveryNegativeResultOfTheIoctlForARefusal)
{
    m_bus.answersSelect(-2);

    EXPECT_EQ(1, i2cInit(FakeBus::kDevice, FakeBus::kAddress));
    EXPECT_THAT(m_journal.all(),
                ElementsAre("open /dev/i2c-7", "select 2a", nodeError("Unable to select address 0x2a"), "close"));
}

TEST_F(I2cInitTest, PrintsANegativeAddressInHexadecimalAndReturnsToDecimal)
{
    m_bus.refusesAddress(EINVAL);
    i2cInit(FakeBus::kDevice, -1);
    std::cout << 16 << std::endl;

    EXPECT_THAT(m_journal.only(Journal::Kind::Line),
                ElementsAre(nodeError("Unable to select address 0xffffffff"), "16"));
}

TEST_F(I2cInitTest, CalledTwiceWithoutI2cCloseLeavesTheFirstDescriptorOpenAndUsesTheSecond)
{
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    ASSERT_EQ(2U, m_bus.openDescriptors().size());
    const int first = *m_bus.openDescriptors().begin();
    i2cClose();

    EXPECT_THAT(m_bus.openDescriptors(), ElementsAre(first));
}

TEST_F(I2cInitTest, MayBeTriedAgainAfterAFailure)
{
    m_bus.refusesAddress(EBUSY);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    m_bus.refusesAddress(0);

    EXPECT_EQ(0, i2cInit(FakeBus::kDevice, FakeBus::kAddress));
    EXPECT_EQ(1U, m_bus.openDescriptors().size());
}

// --- reading ---------------------------------------------------------------------------------------------------------

TEST_F(I2cReadTest, IsAsPatientAsTheOtherProgramsTakeItToBe)
{
    m_bus.refusesWrites(FakeBus::kForever);
    read(0x30, 2);

    const auto calls = m_journal.only(Journal::Kind::Call);
    const std::chrono::microseconds pause = VorelKestrel::kRetryPause;
    EXPECT_EQ(VorelKestrel::kAttempts, std::count(calls.begin(), calls.end(), "write 30"));
    EXPECT_NE(0, std::count(calls.begin(), calls.end(), "sleep " + std::to_string(pause.count())));
}

TEST_F(I2cReadTest, WritesTheRegisterAndReadsInASecondMessage)
{
    m_bus.holds(0x30, {0x03, 0x8b});

    EXPECT_EQ(2, read(0x30, 2));
    EXPECT_EQ("write 30; read 2", m_bus.conversation());
    EXPECT_EQ(0x03, m_data[0]);
    EXPECT_EQ(0x8b, m_data[1]);
    EXPECT_EQ(0xee, m_data[2]);
}

TEST_F(I2cReadTest, WritesTheRegisterAgainAfterARefusalAndAPause)
{
    m_bus.holds(0x30, {0x03, 0x8b}).refusesWrites(1);

    EXPECT_EQ(2, read(0x30, 2));
    EXPECT_EQ("write 30; sleep 10000; write 30; read 2", m_bus.conversation());
}

TEST_F(I2cReadTest, WhoseRegisterByteIsTakenAtTheHundredthAttemptReads)
{
    m_bus.holds(0x30, {1}).refusesWrites(99);

    EXPECT_EQ(1, read(0x30, 1));
    EXPECT_EQ(repeated(99, "write 30; sleep 10000") + "; write 30; read 1", m_bus.conversation());
}

TEST_F(I2cReadTest, WhoseRegisterByteIsRefused100TimesReturns0AfterAboutOneSecondAndDoesNotCallRead)
{
    m_bus.holds(0x30, {1}).refusesWrites(FakeBus::kForever);

    EXPECT_EQ(0, read(0x30, 1));
    EXPECT_EQ(repeated(100, "write 30; sleep 10000"), m_bus.conversation());
    EXPECT_EQ(ENXIO, errno);
}

TEST_F(I2cReadTest, OfWhoseRegisterByteNothingIsTaken100TimesReturns0AndDoesNotCallRead)
{
    m_bus.holds(0x30, {1}).answersWrites(std::vector<int>(100, 0));

    EXPECT_EQ(0, read(0x30, 1));
    EXPECT_EQ(repeated(100, "write 30; sleep 10000"), m_bus.conversation());
}

TEST_F(I2cReadTest, TakesEveryResultOfReadButMinus1ForAnAnswer)
{
    m_bus.answersReads({-2, 0});

    EXPECT_EQ(-2, read(0x30, 2));
    EXPECT_EQ(0, read(0x30, 2));
    EXPECT_EQ("write 30; read 2; write 30; read 2", m_bus.conversation());
}

TEST_F(I2cReadTest, WhoseReadReturnsMinus1AFewTimesAndThenSucceedsReturnsTheCountWithNoSleepBetweenTheAttempts)
{
    m_bus.holds(0x04, counting(4)).failsReads(3);

    EXPECT_EQ(4, read(0x04, 4));
    EXPECT_EQ("write 04; read 4; read 4; read 4; read 4", m_bus.conversation());
}

TEST_F(I2cReadTest, WhoseReadSucceedsAtTheHundredthAttemptReturnsItsCount)
{
    m_bus.holds(0x04, counting(4)).failsReads(99);

    EXPECT_EQ(4, read(0x04, 4));
    EXPECT_EQ("write 04; " + repeated(100, "read 4"), m_bus.conversation());
}

TEST_F(I2cReadTest, WhoseHundredReadsFailReturnsMinus1)
{
    m_bus.failsReads(FakeBus::kForever, EREMOTEIO);

    EXPECT_EQ(-1, read(0x04, 4));
    EXPECT_EQ("write 04; " + repeated(100, "read 4"), m_bus.conversation());
    EXPECT_EQ(EREMOTEIO, errno);
}

TEST_F(I2cReadTest, EndsAfterAHundredReadsAlsoIfASignalInterruptsEach)
{
    m_bus.failsReads(kMoreThanAHundred, EINTR);

    EXPECT_EQ(-1, read(0x04, 4));
    EXPECT_EQ("write 04; " + repeated(100, "read 4"), m_bus.conversation());
}

TEST_F(I2cReadTest, WhoseReadReturnsAShortCountReturnsThatCountAndDoesNotRetry)
{
    m_bus.holds(0x31, counting(128)).deliversOnly(0x31, 100);

    EXPECT_EQ(100, read(0x31, 128));
    EXPECT_EQ("write 31; read 128", m_bus.conversation());
}

TEST_F(I2cReadTest, WhoseReadReturnsNothingReturns0AndDoesNotRetry)
{
    m_bus.holds(0x31, counting(128)).deliversOnly(0x31, 0);

    EXPECT_EQ(0, read(0x31, 128));
    EXPECT_EQ("write 31; read 128", m_bus.conversation());
}

TEST_F(I2cReadTest, OfANegativeLengthIsRefusedByTheSystem)
{
    m_bus.holds(0x31, counting(128));

    EXPECT_EQ(-1, read(0x31, -1));
    EXPECT_EQ("write 31; " + repeated(100, "read -1"), m_bus.conversation());
    EXPECT_EQ(Bytes(256, 0xee), m_data);
}

TEST_F(I2cReadTest, TakesNoLockOfItsOwn)
{
    m_bus.holds(0x00, {3});
    read(0x00, 1);

    EXPECT_FALSE(m_bus.isLocked());
    EXPECT_EQ("write 00; read 1", m_bus.conversation());
}

TEST_F(I2cReadTest, WritesNoLineForABusErrorAtTheDefaultLevel)
{
    m_bus.refusesWrites(FakeBus::kForever);
    read(0x30, 1);

    EXPECT_THAT(lines(), IsEmpty());
}

// --- writing ---------------------------------------------------------------------------------------------------------

TEST_F(I2cWriteTest, SendsTheRegisterAndTheDataInOneMessage)
{
    EXPECT_EQ(3, write(0x21, {0x0a, 0x0b, 0x0c}));
    EXPECT_EQ("write 21 0a 0b 0c", m_bus.conversation());
}

TEST_F(I2cWriteTest, WithLength0SendsTheRegisterByteAloneAndReturns0OnSuccess)
{
    EXPECT_EQ(0, i2cWrite(0x21, 0, nullptr));
    EXPECT_EQ("write 21", m_bus.conversation());
}

TEST_F(I2cWriteTest, IsTriedAgainAfterAPauseUntilItSucceeds)
{
    m_bus.refusesWrites(2);

    EXPECT_EQ(1, write(0x10, {1}));
    EXPECT_EQ("write 10 01; sleep 10000; write 10 01; sleep 10000; write 10 01", m_bus.conversation());
}

TEST_F(I2cWriteTest, ThatIsTakenAtTheHundredthAttemptSucceeds)
{
    m_bus.refusesWrites(99);

    EXPECT_EQ(1, write(0x10, {1}));
    EXPECT_EQ(repeated(99, "write 10 01; sleep 10000") + "; write 10 01", m_bus.conversation());
}

TEST_F(I2cWriteTest, WhoseWriteFails100TimesWithMinus1ReturnsMinus2)
{
    m_bus.refusesWrites(FakeBus::kForever);

    EXPECT_EQ(-2, write(0x10, {1}));
    EXPECT_EQ(repeated(100, "write 10 01; sleep 10000"), m_bus.conversation());
    EXPECT_EQ(ENXIO, errno);
}

TEST_F(I2cWriteTest, EndsAfterAHundredWritesAlsoIfASignalInterruptsEach)
{
    m_bus.refusesWrites(kMoreThanAHundred, EINTR);

    EXPECT_EQ(-2, write(0x10, {1}));
    EXPECT_EQ(repeated(100, "write 10 01; sleep 10000"), m_bus.conversation());
}

TEST_F(I2cWriteTest, OfLength0ThatIsRefused100TimesReturnsMinus2)
{
    m_bus.refusesWrites(FakeBus::kForever);

    EXPECT_EQ(-2, i2cWrite(0x10, 0, nullptr));
}

TEST_F(I2cWriteTest, ThatIsTakenInPartIsAFailureAndReturnsTheLastResultMinusOne)
{
    m_bus.takesOnly(0x21, 2);

    EXPECT_EQ(1, write(0x21, counting(4)));
    EXPECT_EQ(repeated(100, "write 21 00 01 02 03; sleep 10000"), m_bus.conversation());
}

// The whole buffer of a length of -1 is empty: nothing is sent, and the result is the length, which means success.
TEST_F(I2cWriteTest, OfLengthMinus1SendsNothing)
{
    EXPECT_EQ(-1, i2cWrite(0x21, -1, nullptr));
    EXPECT_EQ("write of 0 bytes", m_bus.conversation());
}

// The system's refusal, -1, is the length plus one here.
TEST_F(I2cWriteTest, OfLengthMinus2EndsAtTheFirstRefusal)
{
    EXPECT_EQ(-2, i2cWrite(0x21, -2, nullptr));
    EXPECT_EQ("write of -1 bytes", m_bus.conversation());
}

TEST_F(I2cWriteTest, OfAnyOtherNegativeLengthIsRefusedByTheSystem)
{
    EXPECT_EQ(-2, i2cWrite(0x21, -3, nullptr));
    EXPECT_EQ(repeated(100, "write of -2 bytes; sleep 10000"), m_bus.conversation());
    m_bus.forget();

    EXPECT_EQ(-2, i2cWrite(0x21, INT_MIN, nullptr));
    EXPECT_EQ(repeated(100, "write of -2147483647 bytes; sleep 10000"), m_bus.conversation());
}

// --- transactions ----------------------------------------------------------------------------------------------------

TEST_F(I2cTransactionTest, TakesTheSystemWideLockAndGivesItBack)
{
    EXPECT_TRUE(i2cStartTransaction());
    EXPECT_TRUE(m_bus.isLocked());
    i2cStopTransaction();

    EXPECT_FALSE(m_bus.isLocked());
    EXPECT_EQ("lock; unlock", m_bus.conversation());
}

TEST_F(I2cTransactionTest, ClosingClosesTheDeviceAndNothingElse)
{
    i2cClose();

    EXPECT_EQ("close", m_bus.conversation());
    EXPECT_THAT(m_bus.openDescriptors(), IsEmpty());
}

/// A bus whose close() reports a failure.
class ComplainingBus : public FakeBus
{
public:
    using FakeBus::FakeBus;

    int close(int descriptor) override
    {
        FakeBus::close(descriptor);
        errno = EIO;
        return -1;
    }
};

TEST(I2cCloseTest, IgnoresTheResultOfClose)
{
    Journal journal;
    ComplainingBus bus(journal);
    const ConsoleLog console(journal);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    bus.forget();
    i2cClose();

    EXPECT_THAT(journal.all(), ElementsAre("close")); // once, and without a line
    EXPECT_DEATH(
        {
            journal.echo();
            i2cClose();
        },
        assertionFailedAfter({}, "g_file != -1"));
}

// --- lines -----------------------------------------------------------------------------------------------------------

TEST_F(I2cTransactionTest, EveryOperationWritesItsTraceLineFirstAtLevel6)
{
    m_console.setLevel(6);
    m_bus.holds(0x3a, {1});
    U8 byte = 7;
    i2cInit("/dev/i2c-1", 0x10);
    i2cStartTransaction();
    i2cRead(0x3a, 1, &byte);
    i2cWrite(0xfe, 1, &byte);
    i2cStopTransaction();
    i2cClose();

    EXPECT_THAT(m_journal.all(), ElementsAre(trace("i2cInit() /dev/i2c-1"), "open /dev/i2c-1", "select 10", //
                                             trace("i2cStartTransaction()"), "lock",                        //
                                             trace("i2cRead(reg=0x3a, length=1)"), "write 3a", "read 1",    //
                                             trace("i2cWrite(reg=0xfe, length=1)"), "write fe 01",          //
                                             trace("i2cStopTransaction()"), "unlock",                       //
                                             trace("i2cClose()"), "close"));
}

TEST_F(I2cTransactionTest, TraceLinesShowRegistersInHexadecimalWithoutLeadingZeroAndLengthsInDecimal)
{
    m_console.setLevel(6);
    Bytes data(16);
    i2cRead(0x0a, 16, data.data());
    i2cWrite(0x0b, 16, data.data());

    EXPECT_THAT(lines(), ElementsAre(trace("i2cRead(reg=0xa, length=16)"), trace("i2cWrite(reg=0xb, length=16)")));
}

TEST_F(I2cTransactionTest, BelowLevel6NoOperationWritesALineAlsoWhereTheBusRefuses)
{
    m_bus.holds(0x3a, {1}).refusesRegister(0x3b).failsReadsOf(0x3c).refusesData(0x3d);
    U8 byte = 7;
    for (int level = -1; level <= 5; ++level) {
        m_console.setLevel(level);
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
        i2cStartTransaction();
        for (const U8 reg : {U8{0x3a}, U8{0x3b}, U8{0x3c}})
            i2cRead(reg, 1, &byte);
        for (const U8 reg : {U8{0x3a}, U8{0x3d}})
            i2cWrite(reg, 1, &byte);
        i2cStopTransaction();
        i2cClose();
    }

    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(I2cInitTest, ErrorLinesAreWrittenAtLevel2AndNotAtLevel1)
{
    m_bus.refusesToOpen(EACCES);
    m_console.setLevel(1);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    EXPECT_THAT(m_console.lines(), IsEmpty());
    m_console.setLevel(2);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    EXPECT_EQ(1U, m_console.lines().size());
}

// --- misuse ----------------------------------------------------------------------------------------------------------

struct Misuse
{
    const char* name;
    const char* traceLine;
    void (*call)();
};

std::ostream& operator<<(std::ostream& stream, const Misuse& misuse)
{
    return stream << misuse.name;
}

/// Each operation but i2cInit() in a process whose device is not open: it leaves its trace line, and nothing else
/// before the assertion.
class I2cClosedDeathTest : public BusTest, public ::testing::WithParamInterface<Misuse>
{
protected:
    static int init() { return i2cInit(FakeBus::kDevice, FakeBus::kAddress); }

    void callAndEcho()
    {
        ConsoleLog::setLevel(6);
        m_journal.echo();
        GetParam().call();
    }
    static auto itsTraceLineAndTheAssertion()
    {
        return assertionFailedAfter({trace(GetParam().traceLine)}, "g_file != -1");
    }
};

TEST_P(I2cClosedDeathTest, BeforeI2cInitStopsTheProcessAfterItsTraceLine)
{
    EXPECT_DEATH(callAndEcho(), itsTraceLineAndTheAssertion());
}

TEST_P(I2cClosedDeathTest, AfterI2cCloseStopsTheProcessAfterItsTraceLine)
{
    init();
    i2cClose();
    EXPECT_DEATH(callAndEcho(), itsTraceLineAndTheAssertion());
}

TEST_P(I2cClosedDeathTest, AfterANodeThatCannotBeOpenedStopsTheProcessAfterItsTraceLine)
{
    m_bus.refusesToOpen(ENOENT);
    init();
    EXPECT_DEATH(callAndEcho(), itsTraceLineAndTheAssertion());
}

TEST_P(I2cClosedDeathTest, AfterAnAddressThatIsRefusedStopsTheProcessAfterItsTraceLine)
{
    m_bus.refusesAddress(EBUSY);
    init();
    EXPECT_DEATH(callAndEcho(), itsTraceLineAndTheAssertion());
}

TEST_P(I2cClosedDeathTest, AfterANodeThatCannotBeOpenedASecondTimeDoesNotGoBackToTheFirstDescriptor)
{
    init();
    m_bus.refusesToOpen(ENOENT);
    init();
    EXPECT_DEATH(callAndEcho(), itsTraceLineAndTheAssertion());
}

TEST_P(I2cClosedDeathTest, AfterAnAddressThatIsRefusedTheSecondTimeDoesNotGoBackToTheFirstDescriptor)
{
    init();
    m_bus.refusesAddress(EBUSY);
    init();
    EXPECT_DEATH(callAndEcho(), itsTraceLineAndTheAssertion());
}

U8 g_byte = 0;

INSTANTIATE_TEST_SUITE_P(
    Operations, I2cClosedDeathTest,
    ::testing::Values(Misuse{"StartTransaction", "i2cStartTransaction()", [] { i2cStartTransaction(); }},
                      Misuse{"Read", "i2cRead(reg=0x1, length=1)", [] { i2cRead(1, 1, &g_byte); }},
                      Misuse{"Write", "i2cWrite(reg=0x1, length=1)", [] { i2cWrite(1, 1, &g_byte); }},
                      Misuse{"StopTransaction", "i2cStopTransaction()", [] { i2cStopTransaction(); }},
                      Misuse{"Close", "i2cClose()", [] { i2cClose(); }}),
    [](const auto& misuse) { return std::string(misuse.param.name); });

// What is left of the process when the library's own objects are destroyed.
TEST(I2cUnloadingTest, LeavesTheDeviceOpenAndTheLockAlone)
{
    // A forked child could not end: log4cplus would wait for its threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto* const journal = new Journal; // these outlive every static object
            auto* const bus = new FakeBus(*journal);
            i2cInit(FakeBus::kDevice, FakeBus::kAddress);
            journal->echo();
            bus->forget();
            std::exit(EXIT_SUCCESS);
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), lastWords({}));
}

TEST_F(I2cTransactionTest, StartingTwiceWithoutStoppingWaitsForEver)
{
    EXPECT_DEATH(
        {
            m_journal.echo();
            i2cStartTransaction();
            i2cStartTransaction();
        },
        ::testing::StartsWith("lock\nlock\nfake bus: the lock is taken twice"));
}

} // namespace
