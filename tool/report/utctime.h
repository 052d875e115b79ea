#ifndef TOOL_REPORT_UTCTIME_H
#define TOOL_REPORT_UTCTIME_H

#include <ctime>
#include <string>

namespace VorelKestrel::Tool {

/// "2026-01-31T12:00:00"; who prints it adds what is below a second, and "Z".
std::string dateAndTime(const std::tm& utc);
std::string dateAndTime(std::time_t time);

} // namespace VorelKestrel::Tool

#endif
