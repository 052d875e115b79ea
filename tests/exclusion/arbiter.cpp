#include "tests/exclusion/arbiter.h"

#include <cstdio>

using std::chrono::nanoseconds;

namespace {

std::string milliseconds(std::int64_t nanoseconds)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.3f ms", static_cast<double>(nanoseconds) / 1e6);
    return text;
}

std::string describe(const Turn& turn)
{
    return "process " + std::to_string(turn.process) + ", thread " + std::to_string(turn.thread) + ", operation " +
           std::to_string(turn.number) + " of kind " + std::to_string(turn.kind) + " with " +
           std::to_string(turn.remaining) + " transfers to go";
}

} // namespace

void Waits::add(nanoseconds wait)
{
    ++m_times;
    m_sum += wait.count();
    std::int64_t longest = m_longest;
    while (wait.count() > longest && !m_longest.compare_exchange_weak(longest, wait.count())) {}
}

std::string Waits::text() const
{
    const std::int64_t times = m_times;
    return std::to_string(times) + " times, " + milliseconds(times == 0 ? 0 : m_sum / times) + " on average, " +
           milliseconds(m_longest) + " at most";
}

void Arbiter::transferBegins(const Turn& turn, bool isFirst, nanoseconds waited)
{
    const Turn before = m_turn.exchange(turn);
    if (!isFirst) {
        if (before != turn)
            stop("was interrupted by", turn, before);
        return;
    }
    if (before.remaining != 0 && killedAt(before) == 0)
        stop("broke into", turn, before);
    noteWaits(before, waited);
    m_hasBeenSeen.at(turn.process) = true;
}

void Arbiter::noteWaits(const Turn& left, nanoseconds waited)
{
    m_waits.add(waited);
    const std::int64_t lastKill = m_lastKill.exchange(0);
    if (lastKill != 0)
        m_waitsAfterKills.add(nanoseconds(now() - lastKill));
    if (left.remaining != 0 && killedAt(left) != 0)
        m_waitsAfterKillsOfHolders.add(nanoseconds(now() - killedAt(left)));
}

void Arbiter::transferEnds(const Turn& turn)
{
    Turn found = turn;
    Turn after = turn;
    --after.remaining;
    if (!m_turn.compare_exchange_strong(found, after))
        stop("was overrun by", turn, found);
}

void Arbiter::operationEnds(const Turn& turn)
{
    if (turn.remaining != 0)
        stop("ended early; last was", turn, m_turn);
    ++m_operations;
}

void Arbiter::answerIsWrong(const Turn& turn)
{
    stop("got a wrong answer; last was", turn, m_turn);
}

void Arbiter::condemn(int process)
{
    const std::int64_t time = now();
    m_killedAt.at(static_cast<std::size_t>(process)) = time;
    m_lastKill = time;
}

void Arbiter::stop(const char* what, const Turn& turn, const Turn& other)
{
    if (m_hasStopped.exchange(true))
        return;
    const std::string text = describe(turn) + " " + what + " " + describe(other);
    text.copy(m_reason.data(), m_reason.size() - 1);
}

std::string Arbiter::reason() const
{
    return m_reason.data();
}
