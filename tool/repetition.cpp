#include "tool/repetition.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <thread>

#include <unistd.h>

#include "common/escaped.h"
#include "tool/chip/chip.h"
#include "tool/chip/i2cnode.h"
#include "tool/commands/chipreport.h"
#include "tool/commands/output.h"
#include "tool/repeat/summary.h"
#include "tool/repeat/tally.h"
#include "tool/report/duration.h"
#include "tool/report/failure.h"
#include "tool/report/report.h"
#include "tool/report/utctime.h"

namespace VorelKestrel::Tool {
namespace {

using Clock = std::chrono::steady_clock;

/// After an attempt that failed at once, so that a missing node costs no processor time.
constexpr auto kPause = std::chrono::milliseconds(100);
constexpr auto kShortest = std::chrono::milliseconds(1);

/// "2026-01-31T12:00:00.123Z"
std::string timeOfDay()
{
    const auto now = std::chrono::system_clock::now();
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    return dateAndTime(std::chrono::system_clock::to_time_t(now)) + "." + std::to_string(1000 + rest).substr(1) + "Z";
}

constexpr char kClear[] = "\r\x1b[K";

} // namespace

Progress::Progress() : m_isWanted(isatty(STDERR_FILENO) == 1) {}

void Progress::show(const Tally& tally)
{
    constexpr auto kInterval = std::chrono::milliseconds(200);
    const auto now = Clock::now();
    if (!m_isWanted || now - m_last < kInterval)
        return;
    m_last = now;
    m_isShown = true;
    const Histogram& times = tally.steps().back()->times;
    std::cerr << kClear << tally.attempts() << " attempts, " << tally.failures() << " failures; median "
              << inMilliseconds(times.quantile(0.5)) << ", longest " << inMilliseconds(times.longest()) << std::flush;
}

void Progress::clear()
{
    if (m_isShown)
        std::cerr << kClear << std::flush;
    m_isShown = false;
}

Repetition::Repetition(const CommandLine& line, const CommandContext& context)
    : m_line(line), m_context(context), m_quietly(context.options), m_beginTime(timeOfDay()),
      m_looksAtNode(isNodeThere(context.options.location.device))
{
    m_quietly.json = false;
    m_quietly.stats = false; // the summary shows them
}

ExitStatus Repetition::run()
{
    requireWritablePage(); // before a night of work, not after it
    while (goesOn() && !isInterrupted() && m_context.answer.good()) {
        const Attempt attempt = tryOnce();
        count(attempt);
        if (!attempt.cause.empty())
            tellIfTheNodeIsGone();
        m_progress.show(m_tally);
        if (!attempt.cause.empty() && attempt.time < kShortest)
            std::this_thread::sleep_for(kPause);
    }
    m_progress.clear();
    tell();
    return m_worst;
}

ExitStatus Repetition::giveUp(const Failure& failure)
{
    worsen(failure.status());
    // Without operations: the meter may still be counting.
    count({failure.cause(), m_attemptBegin, Clock::now() - m_begin - m_attemptBegin, {}});
    return leave();
}

ExitStatus Repetition::leave()
{
    m_progress.clear();
    try {
        tell();
    } catch (const Failure& unwritten) {
        explain(unwritten, std::cerr);
        worsen(unwritten.status());
    }
    return m_worst;
}

bool Repetition::goesOn() const
{
    const bool isTime = !m_line.repeat.time || Clock::now() - m_begin < *m_line.repeat.time;
    return isTime && (!m_line.repeat.attempts || m_tally.attempts() < *m_line.repeat.attempts);
}

Attempt Repetition::tryOnce()
{
    Attempt attempt;
    std::ostream nowhere(nullptr);
    m_attemptTime = timeOfDay();
    const auto begin = Clock::now();
    m_attemptBegin = begin - m_begin;
    attempt.begin = m_attemptBegin;
    try {
        m_line.command->run({m_quietly, nowhere, m_context.chips, m_context.meter});
    } catch (const Failure& failure) {
        if (failure.status() == ExitStatus::Usage)
            throw;
        attempt.cause = failure.cause();
        worsen(failure.status());
    }
    attempt.time = Clock::now() - begin;
    attempt.operations = m_context.meter->take();
    return attempt;
}

void Repetition::count(const Attempt& attempt)
{
    m_tally.add(attempt);
    if (!m_line.repeat.jsonLines)
        return;
    printInOneLine(jsonOf(attempt, m_tally.attempts(), m_attemptTime), m_context.answer);
    m_context.answer.flush(); // somebody may be watching
}

/// Without this, a run in which an adapter was unplugged would fail attempt by attempt, and say so only at its end.
void Repetition::tellIfTheNodeIsGone()
{
    const std::string& device = m_context.options.location.device;
    if (!m_looksAtNode || isNodeThere(device))
        return;
    m_looksAtNode = false;
    m_progress.clear();
    explain(
        Failure("node missing", "reach the chip since attempt " + std::to_string(m_tally.attempts()),
                device + " is gone: its adapter was unplugged, or its driver was unloaded",
                "Connect it again and start another run: this one does not open the node a second time. Ctrl-C ends\n"
                "this run with its summary."),
        std::cerr);
}

void Repetition::worsen(ExitStatus status)
{
    const bool isWorse =
        status == ExitStatus::NotAuthentic || (m_worst != ExitStatus::NotAuthentic && status > m_worst);
    m_worst = isWorse ? status : m_worst;
}

void Repetition::tell() const
{
    if (m_line.repeat.jsonLines)
        printInOneLine({{"summary", jsonOf(m_tally)}}, m_context.answer);
    else if (m_context.options.json)
        printInOneLine(jsonOf(m_tally), m_context.answer);
    else
        printTable(m_tally, m_context.answer);
    if (!m_line.repeat.page.empty())
        writePage();
}

void Repetition::requireWritablePage() const
{
    if (m_line.repeat.page.empty())
        return;
    errno = 0;
    if (!std::ofstream(m_line.repeat.page, std::ios::app)) // keeps the page of an earlier run
        throw unwritable(m_line.repeat.page);
}

void Repetition::writePage() const
{
    const std::string title =
        std::string("authchip ") + m_line.row->name + " on " + escapedLines(describe(m_context.options.location));
    storeFile(m_line.repeat.page, pageOf(m_tally, title, m_beginTime));
}

void waitForChip(const CommandContext& context, const RepeatOptions& options)
{
    const auto end = Clock::now() + options.wait;
    while (options.wait.count() > 0) {
        try {
            context.chips->detect();
            break;
        } catch (const Failure&) {
            if (Clock::now() >= end)
                throw;
        }
        std::this_thread::sleep_for(kPause);
    }
    context.meter->take(); // the wait is not part of the first attempt
}

} // namespace VorelKestrel::Tool
