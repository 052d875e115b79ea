#include "tool/report/duration.h"

#include <cstdio>

namespace VorelKestrel::Tool {

double milliseconds(std::chrono::nanoseconds duration)
{
    constexpr double kMicrosecondsPerMillisecond = 1000;
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(duration);
    return static_cast<double>(microseconds.count()) / kMicrosecondsPerMillisecond;
}

std::string inMilliseconds(std::chrono::nanoseconds duration)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f ms", milliseconds(duration));
    return text;
}

} // namespace VorelKestrel::Tool
