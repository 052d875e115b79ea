#include "capture/output.h"

#include <chrono>
#include <cstdio>
#include <ostream>

#include <nlohmann/json.hpp>

#include "common/hex.h"

namespace VorelKestrel::Capture {
namespace {

double secondsOf(std::uint64_t nanoseconds)
{
    return std::chrono::duration<double>(std::chrono::nanoseconds(nanoseconds)).count();
}

std::uint64_t sinceStart(const Recording& recording, const Message& message)
{
    const std::uint64_t start = recording.messages.front().facts.time;
    return message.facts.time > start ? message.facts.time - start : 0;
}

std::string describeSpeaker(const Facts& facts)
{
    std::string speaker =
        facts.call == Call::Wire || facts.process == 0 ? "" : "process " + std::to_string(facts.process);
    if (facts.thread != facts.process)
        speaker += ", thread " + std::to_string(facts.thread);
    const std::string address =
        facts.address == kUnknownAddress ? "an address selected before the capture" : toHex(facts.address, 2);
    return (speaker.empty() ? "" : speaker + ", ") + "bus " + std::to_string(facts.bus) + ", " + address;
}

std::string counted(std::size_t count, const char* what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

void printSum(const Operation& operation, std::ostream& out)
{
    out << "             " << counted(operation.end - operation.begin, "message") << " in "
        << inSeconds(operation.times.total) << ": " << inSeconds(operation.times.bus) << " on the bus, ";
    if (operation.times.chip > 0)
        out << inSeconds(operation.times.chip) << " in the chip, ";
    out << inSeconds(operation.times.between) << " between";
    if (operation.refusals > 0)
        out << "; " << counted(operation.refusals, "failure");
    out << '\n';
    for (const std::string& note : operation.notes)
        out << "             " << note << '\n';
}

const char* nameOf(Call call)
{
    switch (call) {
    case Call::Write:
        return "write";
    case Call::Read:
        return "read";
    case Call::Transfer:
        return "I2C_RDWR";
    case Call::Smbus:
        return "I2C_SMBUS";
    case Call::SelectAddress:
        return "I2C_SLAVE";
    case Call::Wire:
        return "wire";
    case Call::Unknown:
        break;
    }
    return "unknown";
}

nlohmann::ordered_json messageInJson(const Recording& recording, const Step& step)
{
    const Message& message = *step.message;
    const Facts& facts = message.facts;
    nlohmann::ordered_json json = {{"number", message.number},
                                   {"seconds", secondsOf(sinceStart(recording, message))},
                                   {"duration", secondsOf(facts.duration)},
                                   {"bus", facts.bus},
                                   {"address", facts.address},
                                   {"process", facts.process},
                                   {"thread", facts.thread},
                                   {"call", nameOf(facts.call)},
                                   {"read", facts.isRead},
                                   {"register", nullptr},
                                   {"requested", facts.requested},
                                   {"result", facts.result},
                                   {"attempt", facts.attempt},
                                   {"busy", step.isBusy},
                                   {"redacted", facts.isRedacted},
                                   {"data", toHex(message.bytes())},
                                   {"text", step.what},
                                   {"outcome", step.outcome},
                                   {"oddities", step.oddities}};
    if (step.reg)
        json["register"] = *step.reg;
    return json;
}

nlohmann::ordered_json operationInJson(const Analysis& analysis, const Operation& operation)
{
    return {{"name", operation.name},
            {"firstMessage", analysis.steps[operation.begin].message->number},
            {"lastMessage", analysis.steps[operation.end - 1].message->number},
            {"failures", operation.refusals},
            {"seconds", secondsOf(operation.times.total)},
            {"busSeconds", secondsOf(operation.times.bus)},
            {"chipSeconds", secondsOf(operation.times.chip)},
            {"betweenSeconds", secondsOf(operation.times.between)},
            {"notes", operation.notes}};
}

} // namespace

std::string inSeconds(std::uint64_t nanoseconds)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.3f s", secondsOf(nanoseconds));
    return text;
}

void printText(const Recording& recording, const Analysis& analysis, std::ostream& out)
{
    for (const Operation& operation : analysis.operations) {
        if (operation.begin > 0)
            out << '\n';
        out << operation.name << " (" << describeSpeaker(analysis.steps[operation.begin].message->facts) << ")\n";
        for (std::size_t i = operation.begin; i < operation.end; ++i) {
            char time[32];
            std::snprintf(time, sizeof(time), "%9.3f s  ",
                          secondsOf(sinceStart(recording, *analysis.steps[i].message)));
            out << time << analysis.steps[i].line() << '\n';
        }
        printSum(operation, out);
    }
    if (analysis.steps.empty())
        out << "no message\n";
}

void printJson(const Recording& recording, const Analysis& analysis, std::ostream& out)
{
    nlohmann::ordered_json json = {{"messages", nlohmann::ordered_json::array()},
                                   {"operations", nlohmann::ordered_json::array()},
                                   {"damage", recording.damage}};
    for (const Step& step : analysis.steps)
        json["messages"].push_back(messageInJson(recording, step));
    for (const Operation& operation : analysis.operations)
        json["operations"].push_back(operationInJson(analysis, operation));
    out << json.dump() << '\n';
}

} // namespace VorelKestrel::Capture
