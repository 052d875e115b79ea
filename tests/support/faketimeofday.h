#ifndef TESTS_SUPPORT_FAKETIMEOFDAY_H
#define TESTS_SUPPORT_FAKETIMEOFDAY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace testsupport {

/**
 * The clock on the wall, for as long as it lives: every reading of the time of day, by whichever thread, takes the next
 * of the given ones; the last stays. The clocks that timeouts run on are not touched.
 */
class FakeTimeOfDay
{
public:
    using Milliseconds = std::int64_t; // since midnight, UTC, which is the local time then

    explicit FakeTimeOfDay(std::vector<Milliseconds> readings);
    ~FakeTimeOfDay();
    FakeTimeOfDay(const FakeTimeOfDay&) = delete;
    FakeTimeOfDay& operator=(const FakeTimeOfDay&) = delete;

    /// Calls @p action in the thread that reads the time first, before it goes on.
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
