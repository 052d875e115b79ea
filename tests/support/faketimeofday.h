#ifndef TESTS_SUPPORT_FAKETIMEOFDAY_H
#define TESTS_SUPPORT_FAKETIMEOFDAY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace testsupport {

/**
 * Replaces the time of day during its lifetime: each reading, by any thread, returns the next of the given ones; the
 * last repeats. The clocks of timeouts do not change.
 */
class FakeTimeOfDay
{
public:
    using Milliseconds = std::int64_t; // since midnight UTC, which is then also the local time

    explicit FakeTimeOfDay(std::vector<Milliseconds> readings);
    ~FakeTimeOfDay();
    FakeTimeOfDay(const FakeTimeOfDay&) = delete;
    FakeTimeOfDay& operator=(const FakeTimeOfDay&) = delete;

    /// Calls @p action in the thread of the first reading, before it returns.
    FakeTimeOfDay& atTheFirstReading(std::function<void()> action);

    /// For the faked call: the next reading.
    Milliseconds read();

private:
    std::mutex m_mutex;
    std::vector<Milliseconds> m_readings; // these three guarded by m_mutex
    std::size_t m_next = 0;
    std::function<void()> m_action;
};

} // namespace testsupport

#endif
