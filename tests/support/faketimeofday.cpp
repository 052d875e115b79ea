#include "tests/support/faketimeofday.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "tests/support/interposition.h"

namespace testsupport {

namespace {

constexpr std::int64_t kMidnight = 1704067200; // seconds since the epoch: a day without oddities

std::atomic<FakeTimeOfDay*> g_clock{nullptr};

/// Answers one call; @p Time is a timeval of one or the other width.
template<typename Time>
int readTime(const char* symbol, Time* time, void* zone)
{
    FakeTimeOfDay* const clock = g_clock;
    if (clock == nullptr)
        return nextDefinition<int(Time*, void*)>(symbol)(time, zone);
    const auto now = clock->read();
    time->tv_sec = static_cast<decltype(time->tv_sec)>(kMidnight + now / 1000);
    time->tv_usec = static_cast<decltype(time->tv_usec)>(now % 1000 * 1000);
    return 0;
}

} // namespace

FakeTimeOfDay::FakeTimeOfDay(std::vector<Milliseconds> readings) : m_readings(std::move(readings))
{
    setenv("TZ", "UTC0", 1);
    tzset();
    g_clock = this;
}

FakeTimeOfDay::~FakeTimeOfDay()
{
    g_clock = nullptr;
}

FakeTimeOfDay& FakeTimeOfDay::atTheFirstReading(std::function<void()> action)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_action = std::move(action);
    return *this;
}

FakeTimeOfDay::Milliseconds FakeTimeOfDay::read()
{
    std::function<void()> action;
    Milliseconds reading = 0;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        reading = m_readings.at(std::min(m_next++, m_readings.size() - 1));
        action = std::exchange(m_action, nullptr);
    }
    if (action)
        action(); // without the lock: it may read the time itself
    return reading;
}

// The layouts are those of the symbols, whatever a timeval is in this build.
struct NativeTime
{
    long tv_sec;
    long tv_usec;
};
struct WideTime // on 32-bit machines with 64-bit time
{
    std::int64_t tv_sec;
    std::int64_t tv_usec;
};

extern "C" {

int spelledGettimeofday(NativeTime* time, void* zone) SPELLING("gettimeofday");
int spelledGettimeofday64(WideTime* time, void* zone) SPELLING("__gettimeofday64");

int spelledGettimeofday(NativeTime* time, void* zone)
{
    return readTime("gettimeofday", time, zone);
}

int spelledGettimeofday64(WideTime* time, void* zone)
{
    return readTime("__gettimeofday64", time, zone);
}

} // extern "C"

} // namespace testsupport
