#include "tests/exclusion/arbiter.h"

#include <memory>

#include <gtest/gtest.h>

namespace {

using std::chrono::nanoseconds;

class ArbiterTest : public ::testing::Test
{
protected:
    static Turn turnOf(int process, int transfers)
    {
        Turn turn;
        turn.process = static_cast<std::uint16_t>(process);
        turn.number = 1;
        turn.remaining = static_cast<std::uint16_t>(transfers);
        return turn;
    }

    void begins(const Turn& turn) { m_arbiter->transferBegins(turn, true, nanoseconds(1)); }
    void goesOn(const Turn& turn) { m_arbiter->transferBegins(turn, false, nanoseconds(0)); }
    void ends(Turn& turn)
    {
        m_arbiter->transferEnds(turn);
        --turn.remaining;
    }

    const std::unique_ptr<Arbiter> m_arbiter = std::make_unique<Arbiter>(); // too large for the stack
    Turn m_one = turnOf(1, 2);
    Turn m_other = turnOf(2, 1);
};

TEST_F(ArbiterTest, LetsOperationsFollowEachOther)
{
    begins(m_one);
    ends(m_one);
    goesOn(m_one);
    ends(m_one);
    m_arbiter->operationEnds(m_one);
    begins(m_other);
    ends(m_other);
    m_arbiter->operationEnds(m_other);

    EXPECT_FALSE(m_arbiter->hasStopped()) << m_arbiter->reason();
    EXPECT_EQ(2, m_arbiter->operations());
    EXPECT_EQ(2, m_arbiter->waits().times());
}

TEST_F(ArbiterTest, StopsAtATransferBetweenTwoOfAnOperation)
{
    begins(m_one);
    ends(m_one);
    begins(m_other);

    EXPECT_TRUE(m_arbiter->hasStopped());
    EXPECT_EQ("process 2, thread 0, operation 1 of kind 0 with 1 transfers to go broke into "
              "process 1, thread 0, operation 1 of kind 0 with 1 transfers to go",
              m_arbiter->reason());
}

TEST_F(ArbiterTest, StopsAtATransferDuringTheLastOfAnOperation)
{
    begins(m_other);
    begins(m_one);

    EXPECT_TRUE(m_arbiter->hasStopped());
}

TEST_F(ArbiterTest, LetsAnOperationFollowOneWhoseProcessWasKilled)
{
    begins(m_one);
    m_arbiter->condemn(1);
    begins(m_other);
    ends(m_other);

    EXPECT_FALSE(m_arbiter->hasStopped()) << m_arbiter->reason();
    EXPECT_EQ(1, m_arbiter->waitsAfterKills().times());
    EXPECT_EQ(1, m_arbiter->waitsAfterKillsOfHolders().times());
}

TEST_F(ArbiterTest, StopsWhenAProcessThatShouldBeDeadEndsItsTransfer)
{
    begins(m_one);
    m_arbiter->condemn(1);
    begins(m_other);
    ends(m_one);

    EXPECT_TRUE(m_arbiter->hasStopped());
}

TEST_F(ArbiterTest, StopsWhenAProcessThatShouldBeDeadGoesOn)
{
    begins(m_one);
    ends(m_one);
    m_arbiter->condemn(1);
    begins(m_other);
    ends(m_other);
    goesOn(m_one);

    EXPECT_TRUE(m_arbiter->hasStopped());
}

TEST_F(ArbiterTest, CountsAKillOutsideOfAnOperationAsNoKillOfAHolder)
{
    m_arbiter->condemn(3);
    begins(m_other);

    EXPECT_EQ(1, m_arbiter->waitsAfterKills().times());
    EXPECT_EQ(0, m_arbiter->waitsAfterKillsOfHolders().times());
}

TEST_F(ArbiterTest, StopsWhenAnOperationEndsBeforeItsLastTransfer)
{
    begins(m_one);
    ends(m_one);
    m_arbiter->operationEnds(m_one);

    EXPECT_TRUE(m_arbiter->hasStopped());
}

TEST_F(ArbiterTest, StopsAtAWrongAnswer)
{
    m_arbiter->answerIsWrong(m_one);

    EXPECT_TRUE(m_arbiter->hasStopped());
}

TEST_F(ArbiterTest, RemembersWhoWasOnTheBus)
{
    begins(m_other);

    EXPECT_FALSE(m_arbiter->hasSeen(1));
    EXPECT_TRUE(m_arbiter->hasSeen(2));
}

TEST_F(ArbiterTest, TellsTheLongestWait)
{
    m_arbiter->transferBegins(m_other, true, nanoseconds(3'000'000));
    ends(m_other);
    m_arbiter->transferBegins(turnOf(3, 1), true, nanoseconds(1'000'000));

    EXPECT_EQ("2 times, 2.000 ms on average, 3.000 ms at most", m_arbiter->waits().text());
}

} // namespace
