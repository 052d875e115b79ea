#ifndef TOOL_REPORT_FAILURE_H
#define TOOL_REPORT_FAILURE_H

#include <exception>
#include <string>

#include "tool/report/exitstatus.h"

namespace VorelKestrel::Tool {

/// Why a command ended without its answer, in the three sentences that its user needs.
class Failure : public std::exception
{
public:
    Failure(ExitStatus status, std::string tried, std::string answer, std::string next);

    ExitStatus status() const { return m_status; }
    /// What was tried: "open /dev/i2c-9".
    const std::string& tried() const { return m_tried; }
    /// What the system, the chip or the tool said to it: "No such file or directory (ENOENT)".
    const std::string& answer() const { return m_answer; }
    /// What to do about it. Several lines are allowed.
    const std::string& next() const { return m_next; }

    const char* what() const noexcept override { return m_answer.c_str(); }

private:
    ExitStatus m_status;
    std::string m_tried;
    std::string m_answer;
    std::string m_next;
};

/// A system error as its text and its name: "Permission denied (EACCES)".
std::string describeSystemError(int error);

} // namespace VorelKestrel::Tool

#endif
