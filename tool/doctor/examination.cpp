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

Finding refused(const char* cause, const Failure& failure)
{
    return {cause, "cannot " + failure.tried() + ": " + failure.answer(), inOneLine(failure.next())};
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
        results.push_back({check.name, isPossible ? check.run(examination) : std::vector<Finding>{skipped()}});
        for (Finding& finding : results.back().findings)
            finding.next = inOneLine(finding.next);
    }
    return results;
}

} // namespace VorelKestrel::Tool
