#ifndef TOOL_REPETITION_H
#define TOOL_REPETITION_H

#include <chrono>

#include "tool/commands/command.h"
#include "tool/repeat/repeatoptions.h"
#include "tool/repeat/tally.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/// What a terminal shows of a run of many attempts: each report overwrites the line of the one before. Elsewhere
/// nothing is shown.
class Progress
{
public:
    Progress();
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(const Tally& tally);
    void clear();

private:
    const bool m_isWanted;
    bool m_isShown = false;
    std::chrono::steady_clock::time_point m_last = std::chrono::steady_clock::now();
};

/**
 * Runs a command again and again, as the options say, and tells what came of it. Failures are counted; only what is
 * wrong with the command line ends the run. SIGINT and SIGTERM end it after the attempt that runs.
 *
 * The result is that of an attempt that was not authentic, if there was one, else the largest status.
 *
 * Ownership: all arguments of the constructor stay the caller's and outlive this.
 * Errors:    Failure.
 */
class Repetition
{
public:
    Repetition(Command& command, const CommandContext& context, const RepeatOptions& options);
    Repetition(const Repetition&) = delete;
    Repetition& operator=(const Repetition&) = delete;

    ExitStatus run();

    /// Counts the attempt that runs as failed, and tells what came of the run until here: for an attempt that cannot be
    /// aborted, in a process that ends next.
    /// Threads: another than run()'s, which has to stand still in a call of the library meanwhile.
    ExitStatus giveUp(const Failure& failure);

private:
    bool goesOn() const;
    Attempt tryOnce();
    void count(const Attempt& attempt);
    void worsen(ExitStatus status);
    void tell() const;
    void writePage() const;

    using Clock = std::chrono::steady_clock;

    Command& m_command;
    const CommandContext& m_context;
    const RepeatOptions& m_options;
    CommonOptions m_quietly; // of the command, whose own answers nobody sees
    const Clock::time_point m_begin = Clock::now();
    Clock::duration m_attemptBegin{0}; // since m_begin
    std::string m_attemptTime;         // of day
    Tally m_tally;
    Progress m_progress;
    ExitStatus m_worst = ExitStatus::Success;
};

/// Waits for the chip as long as @p options say. Throws the Failure of the last try.
void waitForChip(const CommandContext& context, const RepeatOptions& options);

} // namespace VorelKestrel::Tool

#endif
