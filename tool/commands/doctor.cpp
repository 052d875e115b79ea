#include "tool/doctor/checks.h"

#include "tool/commands/arguments.h"
#include "tool/commands/command.h"
#include "tool/report/causes.h"
#include "tool/report/duration.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kEightBitMaximum = 0xff; // of an address

/// What a check of the chip cost.
std::string costOf(const CheckResult& result)
{
    if (result.effort.messages == 0)
        return "";
    const int retries = result.effort.retries;
    return " (" + inMilliseconds(result.time) + ", " + std::to_string(retries) +
           (retries == 1 ? " retry)" : " retries)");
}

std::string textOf(const CheckResult& result, const Finding& finding)
{
    if (finding.isSkipped())
        return "skipped";
    if (finding.isHealthy() && !finding.isNote())
        return "ok: " + finding.found + costOf(result);
    return std::string(finding.isNote() ? "note" : finding.cause) + ": " + finding.found + "\nnext: " + finding.next;
}

nlohmann::ordered_json jsonOf(const CheckResult& result, const Finding& finding)
{
    using Json = nlohmann::ordered_json;
    const auto orNull = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
    return {{"check", result.name},
            {"cause", finding.cause == nullptr ? Json() : Json(finding.cause)},
            {"found", orNull(finding.found)},
            {"next", orNull(finding.next)},
            {"timeMs", milliseconds(result.time)},
            {"retries", result.effort.retries}};
}

void addChecks(Report& report, const std::vector<CheckResult>& results)
{
    auto checks = nlohmann::ordered_json::array();
    for (const auto& result : results) {
        for (const auto& finding : result.findings) {
            report.text(result.name, textOf(result, finding));
            checks.push_back(jsonOf(result, finding));
        }
    }
    report.json("checks", checks);
}

/// The exit status is that of the first cause.
ExitStatus statusOf(const std::vector<CheckResult>& results)
{
    for (const CheckResult& result : results) {
        for (const Finding& finding : result.findings) {
            if (finding.cause != nullptr)
                return Tool::statusOf(finding.cause);
        }
    }
    return ExitStatus::Success;
}

/// Runs the checks from the node to the signature, and says what to do about what is wrong.
class Doctor : public Command
{
public:
    int largestAddress() const override { return kEightBitMaximum; } // a finding, and no usage error

    void declare(Arguments& arguments) override
    {
        arguments.addFlag("--no-sign", m_skipsSigning, "Do not let the chip sign a challenge");
    }

    ExitStatus run(const CommandContext& context) override
    {
        const CommonOptions& options = context.options;
        Examination examination;
        examination.location = options.location;
        examination.busTimeout = options.busTimeout;
        examination.lockFile = lockKeyFile();
        examination.signs = !m_skipsSigning;
        const std::vector<CheckResult> results = runChecks(examination, doctorChecks());

        // A check that was skipped says nothing against the chip: the one that it needs does.
        const ExitStatus status = statusOf(results);
        Report report;
        report.json("device", options.location.device)
            .json("address", options.location.address)
            .json("healthy", status == ExitStatus::Success);
        addChecks(report, results);
        context.print(report);
        return status;
    }

private:
    bool m_skipsSigning = false;
};

} // namespace

std::unique_ptr<Command> makeDoctor()
{
    return std::make_unique<Doctor>();
}

} // namespace VorelKestrel::Tool
