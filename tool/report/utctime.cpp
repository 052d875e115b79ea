#include "tool/report/utctime.h"

namespace VorelKestrel::Tool {

std::string dateAndTime(const std::tm& utc)
{
    char text[sizeof("2147485547-12-31T23:59:59")]; // the year of the largest tm
    return {text, std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &utc)};
}

std::string dateAndTime(std::time_t time)
{
    std::tm utc{};
    gmtime_r(&time, &utc);
    return dateAndTime(utc);
}

} // namespace VorelKestrel::Tool
