#include "tool/commands/repeatarguments.h"

#include "common/numbers.h"
#include "tool/commands/arguments.h"
#include "tool/commands/values.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

constexpr std::uint32_t kMostAttempts = 1000000000;

} // namespace

void RepeatArguments::declare(Arguments& arguments)
{
    arguments.add("--repeat", m_attempts, "Repeat N times, even after failures, and print a summary").shownAs("N");
    arguments.add("--for", m_time, "Repeat for this long, for example 90s, 30m, 8h or 2d").shownAs("TIME");
    arguments.addFlag("--json-lines", m_options.jsonLines,
                      "With --repeat or --for: print one line of JSON for each attempt");
    arguments.add("--report", m_options.page, "With --repeat or --for: write an HTML page with plots").shownAs("FILE");
    arguments.add("--wait", m_wait, "Wait up to this long for a chip to answer").shownAs("SECONDS");
}

void RepeatArguments::interpret()
{
    if (!m_attempts.empty()) {
        m_options.attempts = parseNumber(m_attempts, kMostAttempts);
        if (!m_options.attempts || *m_options.attempts == 0)
            throw Failure(kWrongUsage, "repeat '" + m_attempts + "' times", "That is not a number of attempts",
                          "Give a number from 1 to " + std::to_string(kMostAttempts) + ".");
    }
    if (!m_time.empty())
        m_options.time = parseSpan(m_time);
    if (!m_wait.empty())
        m_options.wait = std::chrono::seconds(parseWait(m_wait));
    if (!m_options.isWanted() && (m_options.jsonLines || !m_options.page.empty()))
        throw Failure(kWrongUsage, "report on many attempts", "--json-lines and --report need --repeat or --for",
                      "Add --repeat or --for.");
}

} // namespace VorelKestrel::Tool
