#ifndef TOOL_REPORT_DURATION_H
#define TOOL_REPORT_DURATION_H

#include <chrono>
#include <string>

namespace VorelKestrel::Tool {

/// The duration in milliseconds.
double milliseconds(std::chrono::nanoseconds duration);
/// The duration as text: "12.3 ms".
std::string inMilliseconds(std::chrono::nanoseconds duration);

} // namespace VorelKestrel::Tool

#endif
