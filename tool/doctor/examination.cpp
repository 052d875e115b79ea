#include "tool/doctor/examination.h"

#include <algorithm>

namespace VorelKestrel::Tool {
namespace {

bool areHealthy(const std::vector<const char*>& names, const std::vector<CheckResult>& results)
{
    return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        return std::any_of(results.begin(), results.end(),
                           [&](const CheckResult& result) { return result.name == name && result.isHealthy(); });
    });
}

std::string inOneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

} // namespace

Finding healthy(const std::string& found)
{
    return {nullptr, found, ""};
}

Finding skipped()
{
    return {nullptr, "", ""};
}

Finding note(const std::string& found, const std::string& next)
{
    return {nullptr, found, next};
}

Finding refused(const char* cause, const Failure& failure)
{
    return {cause, "cannot " + failure.tried() + ": " + failure.answer(), failure.next()};
}

bool CheckResult::isHealthy() const
{
    return std::all_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.isHealthy(); });
}

std::vector<CheckResult> runChecks(Examination& examination, const std::vector<Check>& checks)
{
    std::vector<CheckResult> results;
    for (const Check& check : checks) {
        const bool isPossible = areHealthy(check.needs, results);
        const Effort before = examination.effort;
        const auto begin = std::chrono::steady_clock::now();
        results.push_back({check.name, isPossible ? check.run(examination) : std::vector<Finding>{skipped()}});
        CheckResult& result = results.back();
        result.time = std::chrono::steady_clock::now() - begin;
        result.effort = {examination.effort.messages - before.messages, examination.effort.retries - before.retries};
        for (Finding& finding : result.findings)
            finding.next = inOneLine(finding.next);
    }
    return results;
}

} // namespace VorelKestrel::Tool
