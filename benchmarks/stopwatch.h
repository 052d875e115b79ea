#ifndef BENCHMARKS_STOPWATCH_H
#define BENCHMARKS_STOPWATCH_H

#include <chrono>

/// Nanoseconds from construction to now.
class Stopwatch
{
public:
    double nanoseconds() const { return std::chrono::duration<double, std::nano>(Clock::now() - m_start).count(); }

private:
    using Clock = std::chrono::steady_clock;
    const Clock::time_point m_start = Clock::now();
};

#endif
