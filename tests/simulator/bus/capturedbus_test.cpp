#include "simulator/bus/capturedbus.h"

#include <cerrno>

#include <gtest/gtest.h>

#include "capture/recording.h"
#include "simulator/simulation.h"
#include "tests/support/temporarydirectory.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using namespace testsupport;

namespace {

class CapturedBusTest : public testing::Test
{
protected:
    Capture::Recording recording() const { return Capture::loadRecording(m_path); }

    const TemporaryDirectory m_folder;
    const std::string m_path = m_folder.path() + "/test.pcapng";
    ManualClock m_clock;
    Simulation m_simulation{{}, nullptr, m_clock};
    Capture::CaptureFile m_file{m_path, "test"};
    CapturedBus m_bus{m_simulation.bus(), m_clock, m_file, 7};
};

} // namespace

TEST_F(CapturedBusTest, WritesDownMessagesAndWhatBecameOfThem)
{
    const AL::U8 reg = 0x00;
    AL::U8 version = 0;
    Faults faults;
    faults.refusedMessages = 1;
    m_simulation.faults().inject(faults);
    EXPECT_EQ(-ENXIO, resultOf(m_bus.write(0x2a, &reg, 1)));
    m_clock.advance(std::chrono::milliseconds(10));
    EXPECT_EQ(1, resultOf(m_bus.write(0x2a, &reg, 1)));
    EXPECT_EQ(1, resultOf(m_bus.read(0x2a, &version, 1)));

    const auto messages = recording().messages;
    ASSERT_EQ(3U, messages.size());
    EXPECT_EQ(-ENXIO, messages[0].facts.result);
    EXPECT_EQ(2U, messages[1].facts.attempt);
    EXPECT_EQ(10000000U, messages[1].facts.time - messages[0].facts.time);
    EXPECT_EQ(Bytes{7}, messages[2].data);
    EXPECT_EQ(Capture::Call::Wire, messages[2].facts.call);
    EXPECT_EQ(7U, messages[2].facts.bus);
    EXPECT_EQ(0x2a, messages[2].facts.address);
}

TEST_F(CapturedBusTest, MeasuresHowLongAMessageTakes)
{
    Faults faults;
    faults.stuckTime = std::chrono::milliseconds(50);
    m_simulation.faults().inject(faults);
    const AL::U8 reg = 0x00;
    m_bus.setTimeout(std::chrono::milliseconds(20));
    EXPECT_EQ(-ETIMEDOUT, resultOf(m_bus.write(0x2a, &reg, 1)));
    EXPECT_EQ(20000000U, recording().messages.at(0).facts.duration);
}

TEST_F(CapturedBusTest, WritesDownWhichAddressIsSelected)
{
    I2cDevNode node(m_bus, {{0x2b}});
    const auto file = node.open();
    EXPECT_EQ(0, file->ioctl(0x0703, reinterpret_cast<void*>(0x2a)));
    EXPECT_EQ(-EBUSY, file->ioctl(0x0703, reinterpret_cast<void*>(0x2b)));

    const auto messages = recording().messages;
    ASSERT_EQ(2U, messages.size());
    EXPECT_TRUE(messages[0].isSelection());
    EXPECT_EQ(0x2a, messages[0].facts.address);
    EXPECT_EQ(-EBUSY, messages[1].facts.result);
}
