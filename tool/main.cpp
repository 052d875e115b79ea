// authchip: shows a chip to whoever brings a board up, and proves it.

#include <csignal>
#include <iostream>
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

/// How the process ends while it waits for the lock: a run of many attempts ends with its summary.
class WithoutTheLock
{
public:
    WithoutTheLock(bool json, std::ostream& answer) : m_json(json), m_answer(answer) {}

    /// Requires: no call of the library runs. @p repetition stays the caller's.
    void setRepetition(Repetition& repetition) { m_repetition = &repetition; }

    LockWatch::Ending ending()
    {
        return {[this] { return m_repetition != nullptr && m_repetition->isInterrupted(); }, [this] { return leave(); },
                [this](const Failure& failure) { return giveUp(failure); }};
    }

private:
    ExitStatus leave()
    {
        const ExitStatus status = m_repetition->leave();
        m_answer.flush();
        return status;
    }
    ExitStatus giveUp(const Failure& failure)
    {
        const ExitStatus status = m_repetition != nullptr ? m_repetition->giveUp(failure) : failure.status();
        if (m_json && m_repetition == nullptr)
            printJson(failure, m_answer);
        m_answer.flush();
        explain(failure, std::cerr);
        return status;
    }

    const bool m_json;
    std::ostream& m_answer;
    Repetition* m_repetition = nullptr; // null: the command runs once
};

ExitStatus runWithLibrary(const CommandLine& line, std::ostream& answer)
{
    const CommonOptions& options = line.options;
    const auto chips = loadLibrary(options.location, options.verbosity, options.logConfig);
    if (options.busTimeout)
        setBusTimeout(options.location.device, *options.busTimeout);
    WithoutTheLock withoutTheLock(options.json, answer);
    LockWatch watch(options.location.device, options.lockTimeout, withoutTheLock.ending());
    BusMeter meter(options.verbosity >= 2 ? tellOnStandardError : BusMeter::Listener());
    WatchedChipAccess watched(*chips, watch, meter);
    const StatsAtTheEnd stats(options, meter);
    const CommandContext context = {options, answer, &watched, &meter};
    waitForChip(context, line.repeat);
    if (!line.repeat.isWanted())
        return line.command->run(context);
    Repetition repetition(line, context);
    withoutTheLock.setRepetition(repetition);
    return repetition.run();
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
    std::signal(SIGXFSZ, SIG_IGN); // so that a file above the limit is an error that can be explained
    ConsoleToStandardError console;
    return runTool(argc, argv, console.answer(), run);
}
