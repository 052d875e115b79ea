#include "simulator/chip/clock.h"

#include <thread>

namespace VorelKestrel::Simulator {

Clock::Duration SystemClock::now() const
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

void SystemClock::sleep(Duration duration)
{
    std::this_thread::sleep_for(duration);
}

} // namespace VorelKestrel::Simulator
