#include "tool/repeat/summary.h"

#include <iomanip>
#include <ostream>

#include "tool/repeat/quantiles.h"
#include "tool/report/duration.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kLabelWidth = 20;
constexpr int kCountWidth = 9;
constexpr int kTimeWidth = 12;

void printCount(std::ostream& out, const std::string& label, std::uint64_t count)
{
    out << std::left << std::setw(kLabelWidth) << label << std::right << std::setw(kCountWidth) << count << '\n';
}

void printHead(std::ostream& out)
{
    out << std::left << std::setw(kLabelWidth) << "step" << std::right;
    for (const char* column : {"calls", "refused", "retries"})
        out << std::setw(kCountWidth) << column;
    for (const Quantile& quantile : kQuantiles)
        out << std::setw(kTimeWidth) << quantile.label;
    out << std::setw(kTimeWidth) << "longest" << '\n';
}

void print(std::ostream& out, const StepFigures& step)
{
    out << std::left << std::setw(kLabelWidth) << step.name << std::right;
    for (const std::uint64_t count : {step.calls, step.refused, step.retries})
        out << std::setw(kCountWidth) << count;
    for (const Quantile& quantile : kQuantiles)
        out << std::setw(kTimeWidth) << inMilliseconds(step.times.quantile(quantile.share));
    out << std::setw(kTimeWidth) << inMilliseconds(step.times.longest()) << '\n';
}

nlohmann::ordered_json jsonOf(const StepFigures& step)
{
    nlohmann::ordered_json json = {{"name", step.name},
                                   {"calls", step.calls},
                                   {"refused", step.refused},
                                   {"retries", step.retries},
                                   {"longestRow", step.longestRow}};
    for (const Quantile& quantile : kQuantiles)
        json[quantile.key] = milliseconds(step.times.quantile(quantile.share));
    json["longestMs"] = milliseconds(step.times.longest());
    return json;
}

} // namespace

void printTable(const Tally& tally, std::ostream& out)
{
    printCount(out, "attempts", tally.attempts());
    printCount(out, "successes", tally.successes());
    printCount(out, "failures", tally.failures());
    for (const auto& [cause, count] : tally.causes())
        printCount(out, "  " + cause, count);
    out << '\n';
    printHead(out);
    for (const StepFigures* step : tally.steps())
        print(out, *step);
}

nlohmann::ordered_json jsonOf(const Tally& tally)
{
    auto steps = nlohmann::ordered_json::array();
    for (const StepFigures* step : tally.steps())
        steps.push_back(jsonOf(*step));
    auto causes = nlohmann::ordered_json::object();
    for (const auto& [cause, count] : tally.causes())
        causes[cause] = count;
    return {{"attempts", tally.attempts()},         {"successes", tally.successes()},
            {"failures", tally.failures()},         {"causes", causes},
            {"timeMs", milliseconds(tally.time())}, {"steps", steps}};
}

nlohmann::ordered_json jsonOf(const Attempt& attempt, std::uint64_t number, const std::string& at)
{
    auto steps = nlohmann::ordered_json::array();
    for (const OperationFigures& call : attempt.operations)
        steps.push_back({{"name", call.operation},
                         {"refused", call.refused},
                         {"retries", call.retries},
                         {"timeMs", milliseconds(call.time)}});
    return {{"attempt", number},
            {"at", at},
            {"cause", attempt.cause.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(attempt.cause)},
            {"timeMs", milliseconds(attempt.time)},
            {"steps", steps}};
}

} // namespace VorelKestrel::Tool
