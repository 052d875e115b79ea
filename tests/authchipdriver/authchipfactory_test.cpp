#include <authchipdriver/authchipfactory.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using VorelKestrel::AL::U8;

namespace {

constexpr const char* kDetection = "open /dev/i2c-7; select 2a; lock; write 00; read 1; unlock";

std::string info(const std::string& message)
{
    return consoleLine("DbgInfo", "authchipfactory", message);
}

std::string factoryError(const std::string& message)
{
    return consoleLine("DbgError", "authchipfactory", message);
}

/// The factory of a new process: ctest runs each case in its own process.
class AuthChipFactoryTest : public BusTest
{
protected:
    AuthChipDriver* detect() { return AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress); }
    AuthChipDriver* detect(U8 deviceVersion)
    {
        m_bus.holds(0x00, {deviceVersion});
        return detect();
    }
    std::vector<std::string> consoleLines() const { return m_journal.only(Journal::Kind::Line); }

    DriverLog m_log{m_journal, log4cplus::ERROR_LOG_LEVEL};
};

TEST_F(AuthChipFactoryTest, DeviceVersion3YieldsAnAuthChipDriver20B)
{
    EXPECT_NE(nullptr, dynamic_cast<AuthChipDriver20B*>(detect(3)));
    EXPECT_EQ(kDetection, m_bus.conversation());
    EXPECT_THAT(consoleLines(), IsEmpty());
}

TEST_F(AuthChipFactoryTest, DeviceVersion5YieldsAnAuthChipDriver20BExactlyLike3)
{
    EXPECT_NE(nullptr, dynamic_cast<AuthChipDriver20B*>(detect(5)));
    EXPECT_EQ(kDetection, m_bus.conversation());
    EXPECT_THAT(consoleLines(), IsEmpty());
}

TEST_F(AuthChipFactoryTest, DeviceVersion7YieldsAnAuthChipDriver30)
{
    EXPECT_NE(nullptr, dynamic_cast<AuthChipDriver30*>(detect(7)));
    EXPECT_EQ(kDetection, m_bus.conversation());
    EXPECT_THAT(consoleLines(), IsEmpty());
}

TEST_F(AuthChipFactoryTest, DeviceVersion1YieldsNoDriverAndIsNotYetSupported)
{
    EXPECT_EQ(nullptr, detect(1));
    EXPECT_EQ(kDetection, m_bus.conversation());
    EXPECT_THAT(consoleLines(),
                ElementsAre(factoryError("Authentication chip driver version 1.0 is not yet supported")));
}

TEST_F(AuthChipFactoryTest, DeviceVersion2YieldsNoDriverAndIsNotYetSupported)
{
    EXPECT_EQ(nullptr, detect(2));
    EXPECT_EQ(kDetection, m_bus.conversation());
    EXPECT_THAT(consoleLines(),
                ElementsAre(factoryError("Authentication chip driver version 2.0A is not yet supported")));
}

TEST_F(AuthChipFactoryTest, DeviceVersions4And6AreReportedAsUnknownNotAsUnsupported)
{
    EXPECT_EQ(nullptr, detect(4));
    EXPECT_EQ(nullptr, detect(6));
    EXPECT_THAT(consoleLines(), ElementsAre(factoryError("Unknown authentication chip driver version: 4"),
                                            factoryError("Unknown authentication chip driver version: 6")));
}

TEST_F(AuthChipFactoryTest, EveryOtherDeviceVersionIsUnknownAndItsLineShowsTheNumber)
{
    std::vector<std::string> expected;
    for (int version = 0; version <= 255; ++version) {
        if ((version >= 1 && version <= 3) || version == 5 || version == 7)
            continue;
        EXPECT_EQ(nullptr, detect(static_cast<U8>(version)));
        expected.push_back(factoryError("Unknown authentication chip driver version: " + std::to_string(version)));
    }

    EXPECT_EQ(expected, consoleLines());
}

TEST_F(AuthChipFactoryTest, ASecondCallReturnsTheSamePointerWithoutTouchingTheBusEvenWithOtherArguments)
{
    AuthChipDriver* const first = detect(7);
    m_bus.forget();

    EXPECT_EQ(first, AuthChipFactory::getAuthChipDriverInstance("/dev/i2c-9", 0x55));
    EXPECT_EQ(first, AuthChipFactory::getAuthChipDriverInstance(nullptr, -1));
    EXPECT_EQ("", m_bus.conversation());
}

TEST_F(AuthChipFactoryTest, HandsDeviceAndAddressOnUnchanged)
{
    m_bus.holds(0x00, {7});
    AuthChipFactory::getAuthChipDriverInstance("/dev/i2c-12", 0x1ff);

    EXPECT_THAT(m_bus.conversation(), StartsWith("open /dev/i2c-12; select 1ff; "));
}

TEST_F(AuthChipFactoryTest, ADeviceThatCannotBeOpenedYieldsNullAndTheLineOfTheI2cLayer)
{
    m_bus.refusesToOpen(ENOENT);

    EXPECT_EQ(nullptr, detect());
    EXPECT_THAT(m_journal.all(),
                ElementsAre("open /dev/i2c-7", consoleLine("DbgError", "i2c_linuxdev", "Unable to open /dev/i2c-7")));
}

TEST_F(AuthChipFactoryTest, AnAddressThatCannotBeSelectedYieldsNullAndTheLineOfTheI2cLayer)
{
    m_bus.refusesAddress(EBUSY);

    EXPECT_EQ(nullptr, detect());
    EXPECT_THAT(m_journal.all(),
                ElementsAre("open /dev/i2c-7", "select 2a",
                            consoleLine("DbgError", "i2c_linuxdev", "Unable to select address 0x2a"), "close"));
}

std::string errnoAndText(int number)
{
    return " errno=" + std::to_string(number) + " str=" + std::strerror(number);
}

TEST_F(AuthChipFactoryTest, ARegisterThatCannotBeReadYieldsNullAndALineWithResultErrnoAndItsText)
{
    m_bus.failsReads(FakeBus::kForever, EREMOTEIO);

    EXPECT_EQ(nullptr, detect());
    ASSERT_EQ(1U, consoleLines().size());
    EXPECT_THAT(consoleLines()[0],
                MatchesRegex("VorelKestrelDbgError\\(authchipdriver/authchipfactory.cpp:#\\) Error in "
                             "i2cRead, readRes=-1 deviceVersion=[0-9]+ errno=.*"));
    EXPECT_THAT(consoleLines()[0], ::testing::EndsWith(errnoAndText(EREMOTEIO)));
}

TEST_F(AuthChipFactoryTest, AChipThatDoesNotAnswerYieldsNullAndALineWithResult0)
{
    m_bus.refusesWrites(FakeBus::kForever);

    EXPECT_EQ(nullptr, detect());
    EXPECT_EQ("open /dev/i2c-7; select 2a; lock; " + repeated(100, "write 00; sleep 10000") + "; unlock",
              m_bus.conversation());
    ASSERT_EQ(1U, consoleLines().size());
    EXPECT_THAT(consoleLines()[0], HasSubstr(") Error in i2cRead, readRes=0 deviceVersion="));
    EXPECT_THAT(consoleLines()[0], ::testing::EndsWith(errnoAndText(ENXIO)));
}

TEST_F(AuthChipFactoryTest, AFailedFirstCallFollowedByASuccessfulSecondCallReturnsADriverAndTheFirstDescriptorStaysOpen)
{
    m_bus.holds(0x00, {7}).failsReads(100);
    ASSERT_EQ(nullptr, detect());
    ASSERT_EQ(1U, m_bus.openDescriptors().size());
    const int first = *m_bus.openDescriptors().begin();

    EXPECT_NE(nullptr, detect());
    EXPECT_EQ(2U, m_bus.openDescriptors().size());
    EXPECT_EQ(1U, m_bus.openDescriptors().count(first));
}

TEST_F(AuthChipFactoryTest, EveryFailureAfterTheDeviceIsOpenLeavesItOpenAndReleasesTheTransaction)
{
    detect(1);
    detect(4);
    m_bus.failsReads(FakeBus::kForever);
    detect();

    EXPECT_EQ(3U, m_bus.openDescriptors().size());
    EXPECT_FALSE(m_bus.isLocked());
}

TEST_F(AuthChipFactoryTest, TheInfoLineIsWrittenAfterASuccessfulReadAndBeforeTheErrorLine)
{
    m_console.setLevel(4);
    detect(2);

    EXPECT_THAT(m_journal.all(),
                ElementsAre("open /dev/i2c-7", "select 2a", "lock", "write 00", "read 1",
                            info("Authentication chip driver version: 2"),
                            factoryError("Authentication chip driver version 2.0A is not yet supported"), "unlock"));
}

TEST_F(AuthChipFactoryTest, TheInfoLineShowsTheNumberInDecimal)
{
    m_console.setLevel(4);
    detect(200);

    EXPECT_EQ(info("Authentication chip driver version: 200"), consoleLines()[0]);
}

TEST_F(AuthChipFactoryTest, TheInfoLineIsNotWrittenAfterAFailedRead)
{
    m_console.setLevel(4);
    m_bus.failsReads(FakeBus::kForever);
    detect();

    ASSERT_EQ(1U, consoleLines().size());
    EXPECT_THAT(consoleLines()[0], HasSubstr("Error in i2cRead"));
}

TEST_F(AuthChipFactoryTest, TheInfoLineIsNotWrittenAtLevel3)
{
    m_console.setLevel(3);
    detect(7);

    EXPECT_THAT(consoleLines(), IsEmpty());
}

TEST_F(AuthChipFactoryTest, ErrorLinesAreNotWrittenAtLevel1)
{
    m_console.setLevel(1);
    detect(1);
    detect(2);
    detect(4);
    m_bus.failsReads(FakeBus::kForever);
    detect();
    m_bus.refusesToOpen(ENOENT);
    detect();

    EXPECT_THAT(consoleLines(), IsEmpty());
}

TEST_F(AuthChipFactoryTest, TheDriverIsMadeWhileTheTransactionIsHeld)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    detect(7);

    EXPECT_THAT(m_journal.all(), ElementsAre("open /dev/i2c-7", "select 2a", "lock", "write 00", "read 1",
                                             "TRACE Enter label: ", "TRACE Leave label: ", "unlock"));
}

TEST_F(AuthChipFactoryTest, TheDriverIsStoredBeforeTheTransactionIsReleased)
{
    AuthChipDriver* storedByThen = nullptr;
    m_bus.during("unlock", [&] { storedByThen = detect(); });
    AuthChipDriver* const driver = detect(7);

    EXPECT_NE(nullptr, storedByThen);
    EXPECT_EQ(driver, storedByThen);
    EXPECT_EQ(kDetection, m_bus.conversation());
}

TEST_F(AuthChipFactoryTest, AReadThatDeliversMoreThanAskedYieldsNullAndALine)
{
    m_bus.holds(0x00, {7}).answersReads({2});

    EXPECT_EQ(nullptr, detect());
    ASSERT_EQ(1U, consoleLines().size());
    EXPECT_THAT(consoleLines()[0], HasSubstr(") Error in i2cRead, readRes=2 deviceVersion=7 errno="));
}

TEST_F(AuthChipFactoryTest, AnExceptionWhileTheDriverIsMadeReleasesTheTransactionAndLeavesNoDriver)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    m_log.answerHookWith([](const std::string&) -> std::string { throw std::runtime_error("hook"); });

    EXPECT_THROW(detect(3), std::runtime_error);
    EXPECT_EQ(kDetection, m_bus.conversation());
    m_log.setLevel(log4cplus::ERROR_LOG_LEVEL);
    EXPECT_NE(nullptr, detect(7));
}

// --- two first calls at once -----------------------------------------------------------------------------------------

/// Two first calls; the other one ends before this one takes the bus.
class SimultaneousDetectionTest : public ::testing::Test
{
protected:
    static AuthChipDriver* detect()
    {
        return AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress);
    }
    AuthChipDriver* detectBoth(U8 versionForTheOther, U8 versionForThisOne)
    {
        m_bus.during("open /dev/i2c-7", [this, versionForTheOther, versionForThisOne] {
            m_bus.holds(0x00, {versionForTheOther});
            m_other = detect();
            m_bus.holds(0x00, {versionForThisOne});
        });
        return detect();
    }

    Journal m_journal;
    FakeBus m_bus{m_journal};
    ConsoleLog m_console{m_journal};
    DriverLog m_log{m_journal, log4cplus::ERROR_LOG_LEVEL};
    AuthChipDriver* m_other = nullptr;
};

TEST_F(SimultaneousDetectionTest, BothDetectTheChipAndTheSecondDriverIsTheOneThatLaterCallsReturn)
{
    AuthChipDriver* const driver = detectBoth(7, 7);
    const std::unique_ptr<AuthChipDriver> lost(m_other);

    EXPECT_NE(nullptr, driver);
    EXPECT_NE(nullptr, m_other);
    EXPECT_NE(m_other, driver);
    EXPECT_EQ(driver, detect());
}

TEST_F(SimultaneousDetectionTest, OneThatFindsNoDriverLeavesTheDriverOfTheOther)
{
    EXPECT_EQ(nullptr, detectBoth(7, 4));
    ASSERT_NE(nullptr, m_other);
    EXPECT_EQ(m_other, detect());
}

} // namespace
