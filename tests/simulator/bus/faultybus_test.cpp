#include "simulator/bus/faultybus.h"

#include <gtest/gtest.h>

#include "tests/simulator/address.h"
#include "tests/simulator/bus/recordingbus.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using namespace std::chrono_literals;
using VorelKestrel::AL::U8;

namespace {

class FaultyBusTest : public testing::Test
{
protected:
    Outcome write(const Bytes& message) { return m_bus.write(kAddress, message.data(), message.size()).outcome; }

    /// Names a register and reads it.
    Transfer read(U8 reg, std::size_t length)
    {
        write({reg});
        m_read.assign(length, 0);
        return m_bus.read(kAddress, m_read.data(), m_read.size());
    }

    RecordingBus m_next;
    ManualClock m_clock;
    FaultyBus m_bus{m_next, m_clock};
    Bytes m_read;
};

TEST_F(FaultyBusTest, LetsEverythingThroughAsItIsMade)
{
    m_next.m_content = {1, 2};

    EXPECT_EQ(2U, read(0x12, 2).count);
    EXPECT_EQ((Bytes{1, 2}), m_read);
    EXPECT_EQ("write 2a 12; read 2a 2", m_next.conversation());
}

TEST_F(FaultyBusTest, RefusesTheNextMessagesAndKeepsThemFromTheChip)
{
    Faults faults;
    faults.refusedMessages = 2;
    m_bus.inject(faults);

    EXPECT_EQ(Outcome::Refused, write({0x20, 0, 20}));
    EXPECT_EQ(Outcome::Refused, m_bus.read(kAddress, m_read.data(), 0).outcome);
    EXPECT_EQ("", m_next.conversation());
    EXPECT_EQ(Outcome::Done, write({0x20, 0, 20}));
}

TEST_F(FaultyBusTest, FailsTheNextReadsAndNoWrites)
{
    Faults faults;
    faults.failedReads = 2;
    m_bus.inject(faults);

    EXPECT_EQ(Outcome::Failed, read(0x00, 1).outcome);
    EXPECT_EQ(Outcome::Failed, read(0x00, 1).outcome);
    EXPECT_EQ(Outcome::Done, read(0x00, 1).outcome);
    EXPECT_EQ("write 2a 00; write 2a 00; write 2a 00; read 2a 1", m_next.conversation());
}

TEST_F(FaultyBusTest, ReportsTheErrorOfAnotherAdapter)
{
    Faults faults;
    faults.refusedMessages = 2;
    faults.failedReads = 1;
    faults.error = EREMOTEIO;
    m_bus.inject(faults);

    const AL::U8 reg = 0x10;
    EXPECT_EQ(-EREMOTEIO, resultOf(m_bus.write(kAddress, &reg, 1)));
    EXPECT_EQ(-EREMOTEIO, resultOf(m_bus.read(kAddress, m_read.data(), 0)));
    EXPECT_EQ(-EREMOTEIO, resultOf(m_bus.read(kAddress, m_read.data(), 0)));
    EXPECT_EQ(1, resultOf(m_bus.write(kAddress, &reg, 1)));
}

TEST_F(FaultyBusTest, DeliversOneByteLessInTheNextReads)
{
    Faults faults;
    faults.shortReads = 1;
    m_bus.inject(faults);

    EXPECT_EQ(127U, read(0x31, 128).count);
    EXPECT_EQ(128U, read(0x31, 128).count);
}

TEST_F(FaultyBusTest, CutsAReadOfOneByteToNothing)
{
    Faults faults;
    faults.shortReads = 1;
    m_bus.inject(faults);

    const Transfer transfer = read(0x10, 1);
    EXPECT_EQ(Outcome::Done, transfer.outcome);
    EXPECT_EQ(0U, transfer.count);
}

TEST_F(FaultyBusTest, CountsDownOnlyForTheRegisterThatIsMeant)
{
    Faults faults;
    faults.failedReads = 1;
    faults.onlyRegister = U8{0x12};
    m_bus.inject(faults);

    EXPECT_EQ(Outcome::Done, read(0x11, 2).outcome);
    EXPECT_EQ(Outcome::Failed, read(0x12, 2).outcome);
    EXPECT_EQ(Outcome::Done, read(0x12, 2).outcome);
    EXPECT_EQ(0, m_bus.faults().failedReads);
}

TEST_F(FaultyBusTest, RefusesOnlyTheRegisterThatIsMeant)
{
    Faults faults;
    faults.refusedMessages = 1;
    faults.onlyRegister = U8{0x21};
    m_bus.inject(faults);

    EXPECT_EQ(Outcome::Done, write({0x20, 0, 20}));
    EXPECT_EQ(Outcome::Refused, write({0x21, 1, 2, 3}));
    EXPECT_EQ(Outcome::Done, write({0x21, 1, 2, 3}));
}

TEST_F(FaultyBusTest, TakesARefusedRegisterNumberForNotNamed)
{
    read(0x11, 2);
    m_next.m_outcome = Outcome::Refused;
    write({0x10});
    m_next.m_outcome = Outcome::Done;
    Faults faults;
    faults.answers[0x11] = {9, 9};
    m_bus.inject(faults);

    m_bus.read(kAddress, m_read.data(), 2);
    EXPECT_EQ((Bytes{9, 9}), m_read);
}

TEST_F(FaultyBusTest, AnswersForARegisterInPlaceOfItsContent)
{
    m_next.m_content = {0x10};
    Faults faults;
    faults.answers[0x10] = {0x30};
    m_bus.inject(faults);

    read(0x10, 1);
    EXPECT_EQ(Bytes{0x30}, m_read);
    read(0x11, 1);
    EXPECT_EQ(Bytes{0x10}, m_read);
}

TEST_F(FaultyBusTest, AnswersInPlaceOfAsManyBytesAsAreRead)
{
    m_next.m_content = {1, 2, 3};
    Faults faults;
    faults.answers[0x11] = {8, 9};
    m_bus.inject(faults);

    read(0x11, 3);
    EXPECT_EQ((Bytes{8, 9, 3}), m_read);
    read(0x11, 1);
    EXPECT_EQ((Bytes{8}), m_read);
}

TEST_F(FaultyBusTest, TurnsOneBitOfTheSignatureOver)
{
    m_next.m_content = {0xa0, 0xb0};
    Faults faults;
    faults.corruptSignature = true;
    m_bus.inject(faults);

    read(0x12, 2);
    EXPECT_EQ((Bytes{0xa0, 0xb1}), m_read);
    read(0x31, 2);
    EXPECT_EQ((Bytes{0xa0, 0xb0}), m_read);
}

TEST_F(FaultyBusTest, FlipsABitOfTheCertificateTheFirstTimeItIsReadAndNoOther)
{
    m_next.m_content = {0, 0, 0};
    Faults faults;
    faults.flippedBit = 128 * 8 + 9; // the second page begins with byte 128
    m_bus.inject(faults);

    read(0x31, 3);
    EXPECT_EQ((Bytes{0, 0, 0}), m_read);
    read(0x32, 1); // which ends before it
    EXPECT_EQ((Bytes{0}), m_read);
    read(0x32, 3);
    EXPECT_EQ((Bytes{0, 0x40, 0}), m_read);
    read(0x32, 3);
    EXPECT_EQ((Bytes{0, 0, 0}), m_read);
}

TEST_F(FaultyBusTest, FlipsABitOfEachChallengeOnItsWayAndOfNoOtherMessage)
{
    Faults faults;
    faults.flippedChallengeBit = 9;
    m_bus.inject(faults);

    write({0x21, 0, 0, 0});
    write({0x21, 0});    // which ends before it
    write({0x20, 0, 0}); // another register
    write({0x21, 0, 0xff});
    EXPECT_EQ("write 2a 21 00 40 00; write 2a 21 00; write 2a 20 00 00; write 2a 21 00 bf", m_next.conversation());
}

TEST_F(FaultyBusTest, FillsWhatIsBehindTheLimitOfAReadWithOnes)
{
    m_next.m_content = {1, 2, 3, 4};
    Faults faults;
    faults.readLimit = 2;
    m_bus.inject(faults);

    read(0x31, 4);
    EXPECT_EQ((Bytes{1, 2, 0xff, 0xff}), m_read);
    read(0x31, 2);
    EXPECT_EQ((Bytes{1, 2}), m_read);
}

TEST_F(FaultyBusTest, RefusesEveryMessageOfAChipThatIsGone)
{
    Faults faults;
    faults.messagesLeft = 2;
    m_bus.inject(faults);

    EXPECT_EQ(Outcome::Done, write({0x00}));
    EXPECT_EQ(Outcome::Done, m_bus.read(kAddress, m_read.data(), 0).outcome);
    EXPECT_EQ(Outcome::Refused, m_bus.read(kAddress, m_read.data(), 0).outcome);
    EXPECT_EQ(Outcome::Refused, write({0x00}));
    EXPECT_EQ("write 2a 00; read 2a 0", m_next.conversation());
}

TEST_F(FaultyBusTest, LetsAnotherProgramNameARegisterBeforeOneReadInSoMany)
{
    Faults faults;
    faults.otherProgram = 2;
    m_bus.inject(faults);

    for (int i = 0; i < 4; ++i)
        m_bus.read(kAddress, m_read.data(), 0);
    EXPECT_EQ("read 2a 0; write 2a 00; read 2a 0; read 2a 0; write 2a 00; read 2a 0", m_next.conversation());
}

TEST_F(FaultyBusTest, TimesOutOnAStuckBusAfterItsTimeAndLetsNothingThrough)
{
    Faults faults;
    faults.stuckTime = 25ms;
    m_bus.inject(faults);

    EXPECT_EQ(Outcome::TimedOut, write({0x00}));
    EXPECT_EQ(25ms, m_clock.now());
    EXPECT_EQ(Outcome::TimedOut, m_bus.read(kAddress, m_read.data(), 0).outcome);
    EXPECT_EQ(50ms, m_clock.now());
    EXPECT_EQ("", m_next.conversation());
}

TEST_F(FaultyBusTest, TimesOutOnAStuckBusAfterTheTimeoutThatWasSet)
{
    Faults faults;
    faults.stuckTime = 1000ms;
    m_bus.inject(faults);
    m_bus.setTimeout(20ms);

    EXPECT_EQ(Outcome::TimedOut, write({0x00}));
    EXPECT_EQ(20ms, m_clock.now());
}

TEST_F(FaultyBusTest, StopsWhenTheFaultsAreTakenBack)
{
    Faults faults;
    faults.stuckTime = 25ms;
    m_bus.inject(faults);
    m_bus.inject({});

    EXPECT_EQ(Outcome::Done, write({0x00}));
}

} // namespace
