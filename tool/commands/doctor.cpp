#include "tool/doctor/checks.h"

#include <algorithm>

#include "tool/commands/command.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kEightBitMaximum = 0xff; // of an address

std::string textOf(const Finding& finding)
{
    if (finding.isSkipped())
        return "not looked at";
    if (finding.cause == nullptr)
        return "ok: " + finding.found;
    return std::string(finding.cause) + ": " + finding.found + "; next: " + finding.next;
}

nlohmann::ordered_json jsonOf(const char* check, const Finding& finding)
{
    using Json = nlohmann::ordered_json;
    const auto orNull = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
    return {{"check", check},
            {"cause", finding.cause == nullptr ? Json() : Json(finding.cause)},
            {"found", orNull(finding.found)},
            {"next", orNull(finding.next)}};
}

/// A check that was skipped says nothing against the chip: the one that it needs does.
bool isHealthy(const std::vector<CheckResult>& results)
{
    return std::all_of(results.begin(), results.end(), [](const CheckResult& result) {
        return std::all_of(result.findings.begin(), result.findings.end(),
                           [](const Finding& finding) { return finding.cause == nullptr; });
    });
}

/// Checks node, address, lock, chip and generation, in this order, and says what to do about what is wrong.
class Doctor : public Command
{
public:
    int largestAddress() const override { return kEightBitMaximum; } // a finding, and no usage error

    ExitStatus run(const CommandContext& context) override
    {
        const CommonOptions& options = context.options;
        Examination examination;
        examination.location = options.location;
        examination.busTimeout = options.busTimeout;
        examination.lockFile = lockKeyFile();
        const std::vector<CheckResult> results = runChecks(examination, doctorChecks());

        Report report;
        auto checks = nlohmann::ordered_json::array();
        for (const auto& result : results) {
            for (const auto& finding : result.findings) {
                report.text(result.name, textOf(finding));
                checks.push_back(jsonOf(result.name, finding));
            }
        }
        report.json("device", options.location.device)
            .json("address", options.location.address)
            .json("healthy", isHealthy(results))
            .json("checks", checks);
        context.print(report);
        return isHealthy(results) ? ExitStatus::Success : ExitStatus::Failed;
    }
};

} // namespace

std::unique_ptr<Command> makeDoctor()
{
    return std::make_unique<Doctor>();
}

} // namespace VorelKestrel::Tool
