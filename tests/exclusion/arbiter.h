#ifndef TESTS_EXCLUSION_ARBITER_H
#define TESTS_EXCLUSION_ARBITER_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <string>

/// What is on the bus: one operation of one thread of one process.
struct Turn
{
    std::uint16_t process = 0; // from 1; 0 is nobody
    std::uint8_t thread = 0;
    std::uint8_t kind = 0;       // of operation; for the message alone
    std::uint16_t number = 0;    // counts the thread's operations, so that two of a kind differ
    std::uint16_t remaining = 0; // its transfers that have not ended yet

    friend bool operator==(const Turn& left, const Turn& right)
    {
        return left.process == right.process && left.thread == right.thread && left.kind == right.kind &&
               left.number == right.number && left.remaining == right.remaining;
    }
    friend bool operator!=(const Turn& left, const Turn& right) { return !(left == right); }
};

/// A histogram of durations. Any process may add one.
class Waits
{
public:
    void add(std::chrono::nanoseconds wait);
    /// "12 times, 0.02 ms on average, 1.35 ms at most"
    std::string text() const;
    std::int64_t times() const { return m_times; }

private:
    std::atomic<std::int64_t> m_times{0};
    std::atomic<std::int64_t> m_sum{0};
    std::atomic<std::int64_t> m_longest{0}; // nanoseconds
};

/**
 * Sees every transfer on a bus that processes share, and stops the test at the first that breaks into another's
 * operation: one that begins before the last transfer of the operation before it has ended, unless the process of that
 * operation was condemned to be killed, and one that finds that somebody was there since the operation's transfer
 * before it.
 *
 * Lives in memory that the processes share. Has no lock of its own, so that a process can be killed at any point and
 * the one lock that orders the transfers is the one under test.
 */
class Arbiter
{
public:
    static constexpr int kProcesses = 1 << 16;

    /// A transfer of @p turn begins or ends; @p isFirst if it is the first of its operation, which waited that long.
    void transferBegins(const Turn& turn, bool isFirst, std::chrono::nanoseconds waited);
    void transferEnds(const Turn& turn);
    void operationEnds(const Turn& turn);
    /// What an operation answered was not meant for it.
    void answerIsWrong(const Turn& turn);

    /// The process will be killed now; it may leave an operation unfinished, and must not go on with it.
    void condemn(int process);

    /// The number of operations after which the test ends.
    void setGoal(std::int64_t operations) { m_goal = operations; }
    /// True if the goal is reached, or the test was stopped.
    bool isOver() const { return m_hasStopped || m_operations >= m_goal; }

    bool hasStopped() const { return m_hasStopped; }
    /// Why the test was stopped: "process 3, thread 1, operation 7 (16 transfers to go) came upon process ..."
    std::string reason() const;
    /// Operations that have ended.
    std::int64_t operations() const { return m_operations; }
    /// True if that process has been on the bus.
    bool hasSeen(int process) const { return m_hasBeenSeen.at(static_cast<std::size_t>(process)); }

    const Waits& waits() const { return m_waits; }
    const Waits& waitsAfterKills() const { return m_waitsAfterKills; }
    const Waits& waitsAfterKillsOfHolders() const { return m_waitsAfterKillsOfHolders; }

private:
    using Clock = std::chrono::steady_clock; // the same for all processes

    void stop(const char* what, const Turn& turn, const Turn& other);
    void noteWaits(const Turn& left, std::chrono::nanoseconds waited);
    static std::int64_t now() { return Clock::now().time_since_epoch().count(); }
    std::int64_t killedAt(const Turn& turn) const { return m_killedAt.at(turn.process); }

    std::atomic<Turn> m_turn{Turn()};
    std::atomic<std::int64_t> m_operations{0};
    std::atomic<std::int64_t> m_goal{std::numeric_limits<std::int64_t>::max()};
    std::atomic<std::int64_t> m_lastKill{0}; // when; 0 once the next operation has been on the bus
    Waits m_waits;
    Waits m_waitsAfterKills;
    Waits m_waitsAfterKillsOfHolders;
    std::array<std::atomic<std::int64_t>, kProcesses> m_killedAt{}; // when; 0 is not
    std::array<std::atomic<bool>, kProcesses> m_hasBeenSeen{};

    std::atomic<bool> m_hasStopped{false};
    std::array<char, 256> m_reason{}; // written once, by the one that stopped the test
};

static_assert(sizeof(Turn) == sizeof(std::uint64_t) && std::atomic<Turn>::is_always_lock_free);
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

#endif
