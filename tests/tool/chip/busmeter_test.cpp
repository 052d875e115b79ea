#include "tool/chip/busmeter.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel::Tool;
using std::chrono::milliseconds;

class BusMeterTest : public testing::Test
{
protected:
    /// A message that takes 1 ms and is followed by a pause of 10 ms.
    void message(bool isRead, long result, int error = 0, const std::vector<std::uint8_t>& data = {})
    {
        const auto end = m_now + milliseconds(1);
        m_meter.count({isRead, 1, result, error, data.data(), m_now, end});
        m_now = end + milliseconds(10);
    }
    void refuse(int times, bool isRead = false)
    {
        for (int i = 0; i < times; ++i)
            message(isRead, -1, ENXIO);
    }

    std::vector<std::string> m_lines;
    BusMeter m_meter{[this](const std::string& line) { m_lines.push_back(line); }};
    BusClock::time_point m_now;
};

TEST_F(BusMeterTest, CountsMessagesRefusalsAndRetriesAndTheLongestWaitOfAMessage)
{
    {
        const BusMeter::Operation operation(m_meter, "sign");
        message(false, 1);
        refuse(3);
        message(false, 1);
        refuse(1);
        message(false, 1);
    }
    const auto calls = m_meter.take();
    ASSERT_EQ(1U, calls.size());
    EXPECT_EQ("sign", calls[0].operation);
    EXPECT_EQ(7, calls[0].messages);
    EXPECT_EQ(4, calls[0].refused);
    EXPECT_EQ(4, calls[0].retries);
    EXPECT_EQ(3, calls[0].longestRow);
    EXPECT_EQ(milliseconds(34), calls[0].longestWait); // three refusals with their pauses, and the message
}

TEST_F(BusMeterTest, TakesTheMessageAfterAHundredRefusalsForAnother)
{
    {
        const BusMeter::Operation operation(m_meter, "sign");
        refuse(100);
        refuse(2);
        message(false, 1);
    }
    const auto calls = m_meter.take();
    EXPECT_EQ(102, calls[0].refused);
    EXPECT_EQ(99 + 2, calls[0].retries);
    EXPECT_EQ(100, calls[0].longestRow);
}

TEST_F(BusMeterTest, TakesAReadAfterARefusedWriteForAnotherMessage)
{
    {
        const BusMeter::Operation operation(m_meter, "sign");
        refuse(2);
        message(true, 1);
    }
    EXPECT_EQ(1, m_meter.take()[0].retries);
}

TEST_F(BusMeterTest, CountsMessagesOnlyInsideAnOperation)
{
    EXPECT_EQ(nullptr, BusMeter::current());
    {
        const BusMeter::Operation operation(m_meter, "read");
        EXPECT_EQ(&m_meter, BusMeter::current());
    }
    EXPECT_EQ(nullptr, BusMeter::current());
    EXPECT_EQ(1U, m_meter.take().size());
    EXPECT_EQ(0U, m_meter.take().size()) << "taken already";
}

TEST_F(BusMeterTest, AddsTheCallsOfAnOperationUp)
{
    for (const char* name : {"read", "write", "read"}) {
        const BusMeter::Operation operation(m_meter, name);
        refuse(name[0] == 'r' ? 2 : 1);
        message(false, 1);
    }
    const auto sums = sumsOf(m_meter.take());
    ASSERT_EQ(2U, sums.size());
    EXPECT_EQ("read", sums[0].operation);
    EXPECT_EQ(2, sums[0].calls);
    EXPECT_EQ(6, sums[0].messages);
    EXPECT_EQ(4, sums[0].refused);
    EXPECT_EQ(2, sums[0].longestRow);
    EXPECT_EQ(milliseconds(23), sums[0].longestWait);
    EXPECT_EQ("write", sums[1].operation);
    EXPECT_EQ(1, sums[1].calls);
}

TEST_F(BusMeterTest, TellsOfEveryMessageAndOfRefusalsInARowAtOnce)
{
    {
        const BusMeter::Operation operation(m_meter, "read");
        refuse(2);
        message(false, 1, 0, {0x30});
        refuse(1, true);
        message(true, 1, 0, {0xab});
        message(true, 0);
        refuse(1);
    }
    const std::vector<std::string> expected = {
        "write refused 2 times in 12.0 ms: No such device or address (ENXIO)",
        "wrote 1 byte (30) in 1.0 ms",
        "read refused 1 time in 1.0 ms: No such device or address (ENXIO)",
        "read 1 byte (ab) in 1.0 ms",
        "read 0 of 1 bytes in 1.0 ms",
        "write refused 1 time in 1.0 ms: No such device or address (ENXIO)",
    };
    EXPECT_EQ(expected, m_lines);
}

TEST_F(BusMeterTest, SaysHowNearAnOperationCameToTheLastAttempt)
{
    OperationFigures figures;
    figures.operation = "sign";
    figures.messages = 9;
    figures.refused = 3;
    figures.retries = 3;
    figures.longestRow = 3;
    figures.longestWait = milliseconds(30);
    figures.time = milliseconds(31);
    EXPECT_EQ("sign: 9 messages, 3 refused (3 of 100 in a row), 3 retries; longest wait 30.0 ms, time 31.0 ms",
              describe(figures));
}

} // namespace
