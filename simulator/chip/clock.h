#ifndef SIMULATOR_CHIP_CLOCK_H
#define SIMULATOR_CHIP_CLOCK_H

#include <atomic>
#include <chrono>

namespace VorelKestrel::Simulator {

/// The clock of the chip and the bus. Threads: any.
class Clock
{
public:
    using Duration = std::chrono::nanoseconds;

    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock() = default;

    /// The time since an arbitrary origin.
    virtual Duration now() const = 0;
    virtual void sleep(Duration duration) = 0;
};

/// Real time.
class SystemClock : public Clock
{
public:
    Duration now() const override;
    void sleep(Duration duration) override;
};

/// A clock that only sleep() and advance() move, without waiting. For tests and fuzzers.
class ManualClock : public Clock
{
public:
    Duration now() const override { return m_now.load(); }
    void sleep(Duration duration) override { advance(duration); }

    void advance(Duration duration)
    {
        Duration seen = m_now.load();
        while (!m_now.compare_exchange_weak(seen, seen + duration)) {}
    }

private:
    std::atomic<Duration> m_now{Duration::zero()};
};

} // namespace VorelKestrel::Simulator

#endif
