#include "tool/report/failure.h"

#include <cstring>
#include <utility>

namespace VorelKestrel::Tool {

Failure::Failure(ExitStatus status, std::string tried, std::string answer, std::string next)
    : m_status(status), m_tried(std::move(tried)), m_answer(std::move(answer)), m_next(std::move(next))
{}

std::string describeSystemError(int error)
{
    const char* name = strerrorname_np(error);
    return std::string(strerror(error)) + " (" + (name != nullptr ? name : std::to_string(error)) + ")";
}

} // namespace VorelKestrel::Tool
