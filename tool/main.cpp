// authchip: shows a chip to whoever brings a board up, and proves it.

#include <iostream>
#include <optional>
#include <string>

#include "common/escaped.h"
#include "common/standarddescriptors.h"
#include "tool/chip/busmeter.h"
#include "tool/chip/i2cnode.h"
#include "tool/chip/watchedchip.h"
#include "tool/lock/lockwatch.h"
#include "tool/modules.h"
#include "tool/repetition.h"
#include "tool/report/failure.h"
#include "tool/runtool.h"

namespace {

using namespace VorelKestrel::Tool;

/// Points std::cout, to which the library and console appenders write, at standard error, and leaves standard output
/// to the answer.
class ConsoleToStandardError
{
public:
    ConsoleToStandardError() : m_answer(std::cout.rdbuf(std::cerr.rdbuf())) {}
    ~ConsoleToStandardError() { std::cout.rdbuf(m_answer.rdbuf()); }
    ConsoleToStandardError(const ConsoleToStandardError&) = delete;
    ConsoleToStandardError& operator=(const ConsoleToStandardError&) = delete;

    std::ostream& answer() { return m_answer; }

private:
    std::ostream m_answer;
};

void tellOnStandardError(const std::string& line)
{
    std::cerr << "authchip: " + VorelKestrel::escapedLines(line) + "\n";
}

/// What the operations cost comes on standard error at the end, unless the answer has it already, as JSON.
class StatsAtTheEnd
{
public:
    StatsAtTheEnd(const CommonOptions& options, BusMeter& meter) : m_isWanted(options.stats), m_meter(meter) {}
    ~StatsAtTheEnd()
    {
        if (m_isWanted)
            tell();
    }
    StatsAtTheEnd(const StatsAtTheEnd&) = delete;
    StatsAtTheEnd& operator=(const StatsAtTheEnd&) = delete;

private:
    void tell() const
    {
        for (const OperationFigures& sum : sumsOf(m_meter.take()))
            tellOnStandardError(describe(sum));
    }

    const bool m_isWanted;
    BusMeter& m_meter;
};

/// What a process says that waits for the lock no longer. Returns its exit status.
ExitStatus giveUp(bool json, const Failure& failure, std::ostream& answer)
{
    if (json)
        printJson(failure, answer);
    answer.flush();
    explain(failure, std::cerr);
    return failure.status();
}

/// The same in a run of many attempts: with its summary.
ExitStatus giveUp(Repetition& repetition, const Failure& failure, std::ostream& answer)
{
    const ExitStatus status = repetition.giveUp(failure);
    answer.flush();
    explain(failure, std::cerr);
    return status;
}

ExitStatus runWithLibrary(const CommandLine& line, std::ostream& answer)
{
    const CommonOptions& options = line.options;
    const auto chips = loadLibrary(options.location, options.verbosity, options.logConfig);
    if (options.busTimeout)
        setBusTimeout(options.location.device, *options.busTimeout);
    std::optional<Repetition> repetition; // set between two calls of the library
    LockWatch watch(options.location.device, options.lockTimeout, [&](const Failure& failure) {
        return repetition ? giveUp(*repetition, failure, answer) : giveUp(options.json, failure, answer);
    });
    BusMeter meter(options.verbosity >= 2 ? tellOnStandardError : BusMeter::Listener());
    WatchedChipAccess watched(*chips, watch, meter);
    const StatsAtTheEnd stats(options, meter);
    const CommandContext context = {options, answer, &watched, &meter};
    waitForChip(context, line.repeat);
    if (!line.repeat.isWanted())
        return line.command->run(context);
    repetition.emplace(line, context);
    return repetition->run();
}

ExitStatus run(const CommandLine& line, std::ostream& answer)
{
    if (line.row->needs == Needs::Library)
        return runWithLibrary(line, answer);
    return line.command->run({line.options, answer, nullptr, nullptr});
}

} // namespace

int main(int argc, const char* const* argv)
{
    VorelKestrel::occupyStandardDescriptors();
    ConsoleToStandardError console;
    return runTool(argc, argv, console.answer(), run);
}
