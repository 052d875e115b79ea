#ifndef TOOL_REPETITION_H
#define TOOL_REPETITION_H

#include <chrono>

#include "tool/commands/commandline.h"
#include "tool/repeat/interruption.h"
#include "tool/repeat/repeatoptions.h"
#include "tool/repeat/tally.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/// The progress of a run of many attempts, in one line of a terminal that each report overwrites. Shows nothing
/// elsewhere.
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
 * Repeats a command as the options say, and prints a summary. Failures are counted; only a wrong command line ends the
 * run. SIGINT and SIGTERM end it after the current attempt.
 *
 * Result:    NotAuthentic if an attempt was not authentic, otherwise the largest status of all attempts.
 *
 * Ownership: both arguments of the constructor stay the caller's and outlive this object.
 * Errors:    Failure.
 */
class Repetition
{
public:
    Repetition(const CommandLine& line, const CommandContext& context);
    Repetition(const Repetition&) = delete;
    Repetition& operator=(const Repetition&) = delete;

    ExitStatus run();

    // For a process that exits next, in the middle of an attempt that cannot be aborted.
    // Threads: any but run()'s, which must be waiting in a call of the library meanwhile.

    /// Whether SIGINT or SIGTERM has come.
    bool isInterrupted() const { return m_interruption.hasCome(); }
    /// Prints the summary, without this attempt.
    ExitStatus leave();
    /// Prints the summary, in which this attempt has failed.
    ExitStatus giveUp(const Failure& failure);

private:
    bool goesOn() const;
    Attempt tryOnce();
    void count(const Attempt& attempt);
    void tellIfTheNodeIsGone();
    void worsen(ExitStatus status);
    void tell() const;
    void requireWritablePage() const;
    void writePage() const;

    using Clock = std::chrono::steady_clock;

    const CommandLine& m_line;
    const CommandContext& m_context;
    CommonOptions m_quietly; // for the command, whose own answers are dropped
    const Clock::time_point m_begin = Clock::now();
    const std::string m_beginTime;     // of day
    Clock::duration m_attemptBegin{0}; // since m_begin
    std::string m_attemptTime;         // of day
    bool m_looksAtNode;                // to tell when it goes; false: it was never there, or that was told
    Tally m_tally;
    Progress m_progress;
    const Interruption m_interruption;
    ExitStatus m_worst = ExitStatus::Success;
};

/// Waits for the chip as long as @p options say. Throws the Failure of the last attempt.
void waitForChip(const CommandContext& context, const RepeatOptions& options);

} // namespace VorelKestrel::Tool

#endif
