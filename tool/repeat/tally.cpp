#include "tool/repeat/tally.h"

#include <algorithm>

namespace VorelKestrel::Tool {
namespace {

void addTo(StepFigures& step, std::chrono::nanoseconds time)
{
    ++step.calls;
    step.times.add(time);
}

} // namespace

void Tally::add(const Attempt& attempt)
{
    if (!attempt.cause.empty())
        ++m_causes[attempt.cause];
    auto rest = attempt.time;
    for (const OperationFigures& call : attempt.operations) {
        StepFigures& step = stepOf(call.operation);
        addTo(step, call.time);
        step.refused += static_cast<std::uint64_t>(call.refused);
        step.retries += static_cast<std::uint64_t>(call.retries);
        step.longestRow = std::max(step.longestRow, call.longestRow);
        rest -= call.time;
    }
    addTo(m_rest, rest);
    addTo(m_whole, attempt.time);
    m_timeline.add(attempt.begin, attempt.cause.empty());
    m_time = attempt.begin + attempt.time;
}

std::uint64_t Tally::failures() const
{
    std::uint64_t sum = 0;
    for (const auto& [cause, count] : m_causes)
        sum += count;
    return sum;
}

std::vector<const StepFigures*> Tally::steps() const
{
    std::vector<const StepFigures*> steps;
    for (const auto& step : m_operations)
        steps.push_back(step.get());
    steps.push_back(&m_rest);
    steps.push_back(&m_whole);
    return steps;
}

StepFigures& Tally::stepOf(const std::string& operation)
{
    const auto found = std::find_if(m_operations.begin(), m_operations.end(),
                                    [&](const auto& step) { return step->name == operation; });
    if (found != m_operations.end())
        return **found;
    m_operations.push_back(std::make_unique<StepFigures>());
    m_operations.back()->name = operation;
    return *m_operations.back();
}

} // namespace VorelKestrel::Tool
