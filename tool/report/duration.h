#ifndef TOOL_REPORT_DURATION_H
#define TOOL_REPORT_DURATION_H

#include <chrono>
#include <string>

namespace VorelKestrel::Tool {

/// A number of milliseconds, for programs.
double milliseconds(std::chrono::nanoseconds duration);
/// "12.3 ms", for people.
std::string inMilliseconds(std::chrono::nanoseconds duration);

} // namespace VorelKestrel::Tool

#endif
