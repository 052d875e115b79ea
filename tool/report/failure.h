#ifndef TOOL_REPORT_FAILURE_H
#define TOOL_REPORT_FAILURE_H

#include <exception>
#include <iosfwd>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "tool/report/causes.h"
#include "tool/report/exitstatus.h"

namespace VorelKestrel::Tool {

/// Why a command failed: a cause for programs, and three sentences for people.
class Failure : public std::exception
{
public:
    /// @p cause  one of causes(); decides the exit status.
    Failure(const char* cause, std::string tried, std::string answer, std::string next);

    /// Adds the errno of the system; 0: none.
    Failure& withSystemError(int error);
    /// Adds the place where the mistake is written: "line 2 of /etc/authchip.conf".
    Failure& withPlace(const std::string& place);
    /// Replaces the exit status.
    Failure& withStatus(ExitStatus status);
    /// Marks a failure whose object is part of the printed answer.
    Failure& afterAnswer();

    const char* cause() const { return m_cause; }
    ExitStatus status() const { return m_status; }
    bool isAfterAnswer() const { return m_isAfterAnswer; }
    /// What was tried, for example "open /dev/i2c-9"; may be empty.
    const std::string& tried() const { return m_tried; }
    /// Why it failed, for example "No such file or directory (ENOENT)".
    const std::string& answer() const { return m_answer; }
    /// What to do next; may have several lines.
    const std::string& next() const { return m_next; }

    const char* what() const noexcept override { return m_answer.c_str(); }

    /// For programs: cause, tried, answer, errno and next; null for what is missing.
    nlohmann::ordered_json json() const;

private:
    const char* m_cause;
    ExitStatus m_status;
    bool m_isAfterAnswer = false;
    int m_systemError = 0; // 0: none
    std::string m_tried;
    std::string m_answer;
    std::string m_next;
};

/// Prints what failed and what to do next, for people.
void explain(const Failure& failure, std::ostream& out);
/// Prints {"failure": ...}, for programs.
void printJson(const Failure& failure, std::ostream& out);

/// Text and name of a system error: "Permission denied (EACCES)".
std::string describeSystemError(int error);

} // namespace VorelKestrel::Tool

#endif
