#include "tool/report/failure.h"

#include <cstring>
#include <ostream>
#include <utility>

#include "common/escaped.h"
#include "tool/report/indented.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {

Failure::Failure(const char* cause, std::string tried, std::string answer, std::string next)
    : m_cause(cause), m_status(statusOf(cause)), m_tried(std::move(tried)), m_answer(std::move(answer)),
      m_next(std::move(next))
{}

Failure& Failure::withSystemError(int error)
{
    m_systemError = error;
    return *this;
}

Failure& Failure::withPlace(const std::string& place)
{
    m_answer += " (" + place + ")";
    return *this;
}

Failure& Failure::withStatus(ExitStatus status)
{
    m_status = status;
    return *this;
}

Failure& Failure::afterAnswer()
{
    m_isAfterAnswer = true;
    return *this;
}

nlohmann::ordered_json Failure::json() const
{
    using Json = nlohmann::ordered_json;
    return {{"cause", m_cause},
            {"tried", m_tried.empty() ? Json() : Json(m_tried)},
            {"answer", m_answer},
            {"errno", m_systemError == 0 ? Json() : Json(m_systemError)},
            {"next", m_next}};
}

void explain(const Failure& failure, std::ostream& out)
{
    const std::string next = "  next: ";
    const std::string answer = escapedLines(failure.answer());
    const std::string begin =
        failure.tried().empty() ? answer : "cannot " + escapedLines(failure.tried()) + "\n  " + indented(answer, 2);
    out << "authchip: " << begin << '\n' << next << indented(escapedLines(failure.next()), next.size()) << '\n';
}

void printJson(const Failure& failure, std::ostream& out)
{
    Report report;
    report.json("failure", failure.json()).printJson(out);
}

std::string describeSystemError(int error)
{
    const char* name = strerrorname_np(error);
    return std::string(strerror(error)) + " (" + (name != nullptr ? name : std::to_string(error)) + ")";
}

} // namespace VorelKestrel::Tool
