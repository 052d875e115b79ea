#include "simulator/bus/loggedbus.h"

#include <sstream>

#include <gtest/gtest.h>

#include "tests/simulator/bus/recordingbus.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using namespace std::chrono_literals;

namespace {

constexpr const char* kHead = "# seconds address direction length outcome [bytes]\n";

class LoggedBusTest : public testing::Test
{
protected:
    LoggedBusTest() { m_clock.advance(5s); }

    RecordingBus m_next;
    ManualClock m_clock;
    std::ostringstream m_log;
};

TEST_F(LoggedBusTest, WritesALineForEveryMessageWithTheTimeSinceItsStart)
{
    LoggedBus bus(m_next, m_clock, m_log);
    const Bytes command = {0x10, 0x01};
    m_clock.advance(1234567us);
    bus.write(0x2a, command.data(), command.size());
    m_next.m_content = {0xab, 0x0c};
    Bytes data(2);
    m_clock.advance(1us);
    bus.read(0x2a, data.data(), data.size());

    EXPECT_EQ(std::string(kHead) + "1.234567 0x2a write 2 done 10 01\n1.234568 0x2a read 2 done ab 0c\n", m_log.str());
}

TEST_F(LoggedBusTest, SaysHowAMessageFailed)
{
    LoggedBus bus(m_next, m_clock, m_log);
    Bytes data = {0x10};
    m_next.m_outcome = Outcome::Refused;
    bus.write(0x05, data.data(), 1);
    m_next.m_outcome = Outcome::Failed;
    bus.read(0x05, data.data(), 1);
    m_next.m_outcome = Outcome::TimedOut;
    bus.read(0x05, data.data(), 1);

    EXPECT_EQ(std::string(kHead) + "0.000000 0x05 write 1 refused 10\n0.000000 0x05 read 1 failed\n"
                                   "0.000000 0x05 read 1 timeout\n",
              m_log.str());
}

TEST_F(LoggedBusTest, WritesATimeoutAsACommentAndHandsItOn)
{
    LoggedBus bus(m_next, m_clock, m_log);
    m_clock.advance(2ms);
    bus.setTimeout(50ms);

    EXPECT_EQ(std::string(kHead) + "# 0.002000 timeout 50 ms\n", m_log.str());
    EXPECT_EQ("timeout 50", m_next.conversation());
}

TEST_F(LoggedBusTest, HandsTheResultOn)
{
    LoggedBus bus(m_next, m_clock, m_log);
    Bytes data(3);

    EXPECT_EQ(3U, bus.read(0x2a, data.data(), 3).count);
    m_next.m_outcome = Outcome::Failed;
    EXPECT_EQ(Outcome::Failed, bus.write(0x2a, data.data(), 3).outcome);
}

} // namespace
