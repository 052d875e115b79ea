#include "simulator/bus/chipbus.h"

#include <gtest/gtest.h>

#include "tests/simulator/chip/testcredentials.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using namespace std::chrono_literals;

namespace {

class ChipBusTest : public testing::Test
{
protected:
    static constexpr unsigned kChipAddress = 0x2a;

    Bytes m_data = Bytes(128);
    ManualClock m_clock;
    SimulatedChip m_chip{ChipSettings{}, testCredentials(kGeneration30), m_clock};
    ChipBus m_bus{m_chip, kChipAddress, m_clock, 0};
};

TEST_F(ChipBusTest, ReachesTheChipAtItsAddressAndNobodyAtAnyOther)
{
    for (unsigned address = 0; address <= 0x7f; ++address) {
        const Outcome expected = address == kChipAddress ? Outcome::Done : Outcome::Refused;
        EXPECT_EQ(expected, m_bus.write(address, m_data.data(), 1).outcome) << address;
        EXPECT_EQ(expected, m_bus.read(address, m_data.data(), 1).outcome) << address;
    }
}

TEST_F(ChipBusTest, RefusesAMessageOfWhichTheChipDoesNotTakeEveryByte)
{
    const Bytes message = {0x00, 9}; // the device version cannot be written

    EXPECT_EQ(Outcome::Refused, m_bus.write(kChipAddress, message.data(), message.size()).outcome);
}

TEST_F(ChipBusTest, TakesAMessageWithoutBytesForTheQuestionWhoIsThere)
{
    EXPECT_EQ(Outcome::Done, m_bus.write(kChipAddress, nullptr, 0).outcome);
    EXPECT_EQ(Outcome::Refused, m_bus.write(kChipAddress + 1, nullptr, 0).outcome);
}

TEST_F(ChipBusTest, TakesNoTimeWithoutAClockOfTheBus)
{
    m_bus.read(kChipAddress, m_data.data(), m_data.size());

    EXPECT_EQ(0ns, m_clock.now());
}

TEST_F(ChipBusTest, TakesNineBitsForTheAddressAndForEveryByte)
{
    ChipBus bus(m_chip, kChipAddress, m_clock, 100000);

    bus.read(kChipAddress, m_data.data(), 128);
    EXPECT_EQ(129 * 9 * 10us, m_clock.now());
    bus.write(kChipAddress, m_data.data(), 1);
    EXPECT_EQ(131 * 9 * 10us, m_clock.now());
}

TEST_F(ChipBusTest, TakesTheTimeOfTheAddressForAMessageThatNobodyAnswers)
{
    ChipBus bus(m_chip, kChipAddress, m_clock, 100000);

    bus.read(kChipAddress + 1, m_data.data(), 128);
    EXPECT_EQ(9 * 10us, m_clock.now());
}

} // namespace
