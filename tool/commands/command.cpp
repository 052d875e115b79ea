#include "tool/commands/command.h"

#include "tool/chip/busmeter.h"
#include "tool/report/duration.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

nlohmann::ordered_json jsonOf(const OperationFigures& sum)
{
    return {{"operation", sum.operation},
            {"calls", sum.calls},
            {"messages", sum.messages},
            {"refused", sum.refused},
            {"retries", sum.retries},
            {"longestRow", sum.longestRow},
            {"longestWaitMs", milliseconds(sum.longestWait)},
            {"timeMs", milliseconds(sum.time)}};
}

} // namespace

void CommandContext::print(Report& report) const
{
    if (options.stats && options.json && meter != nullptr) {
        auto rows = nlohmann::ordered_json::array();
        for (const OperationFigures& sum : sumsOf(meter->take()))
            rows.push_back(jsonOf(sum));
        report.json("stats", rows);
    }
    report.print(options.json, answer);
}

} // namespace VorelKestrel::Tool
