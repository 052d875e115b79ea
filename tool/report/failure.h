#ifndef TOOL_REPORT_FAILURE_H
#define TOOL_REPORT_FAILURE_H

#include <exception>
#include <iosfwd>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "tool/report/causes.h"
#include "tool/report/exitstatus.h"

namespace VorelKestrel::Tool {

/// Why a command ended without its answer: a cause for programs, and the three sentences that its user needs.
class Failure : public std::exception
{
public:
    /// @p cause  one of causes(), which decides the exit status.
    Failure(const char* cause, std::string tried, std::string answer, std::string next);

    /// The same with what the system said; 0 is nothing.
    Failure& withSystemError(int error);
    /// The same with an exit status of its own.
    Failure& withStatus(ExitStatus status);
    /// The same for one whose object is part of an answer that is printed already.
    Failure& afterAnswer();

    const char* cause() const { return m_cause; }
    ExitStatus status() const { return m_status; }
    bool isAfterAnswer() const { return m_isAfterAnswer; }
    /// What was tried: "open /dev/i2c-9". Empty: the answer says it all.
    const std::string& tried() const { return m_tried; }
    /// What the system, the chip or the tool said to it: "No such file or directory (ENOENT)".
    const std::string& answer() const { return m_answer; }
    /// What to do about it. Several lines are allowed.
    const std::string& next() const { return m_next; }

    const char* what() const noexcept override { return m_answer.c_str(); }

    /// For programs: cause, tried, answer, errno and next; null for what there is not.
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

/// Tells people what failed, and what to do next: each on lines of its own.
void explain(const Failure& failure, std::ostream& out);
/// Tells programs: {"failure": ...}
void printJson(const Failure& failure, std::ostream& out);

/// A system error as its text and its name: "Permission denied (EACCES)".
std::string describeSystemError(int error);

} // namespace VorelKestrel::Tool

#endif
