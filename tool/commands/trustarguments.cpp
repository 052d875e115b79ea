#include "tool/commands/trustarguments.h"

#include <cstdlib>
#include <ctime>

#include "tool/commands/arguments.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

/// Parses "2026-01-31T12:00:00Z" or "2026-01-31". No value for anything else: a day that its month does not have, or a
/// time that a clock of 32 bits cannot count.
std::optional<std::time_t> parseTime(const std::string& text)
{
    for (const char* form : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
        std::tm parts{};
        const char* end = strptime(text.c_str(), form, &parts);
        if (end == nullptr || *end != '\0')
            continue;
        const int day = parts.tm_mday;
        const std::time_t seconds = timegm(&parts); // makes the 3rd of March of the 31st of February
        if (seconds != -1 && parts.tm_mday == day)
            return seconds;
    }
    return std::nullopt;
}

} // namespace

void TrustArguments::declare(Arguments& arguments)
{
    arguments
        .addRepeatable("--issuer", m_options.issuers,
                       "Trusted issuers: a file or folder with their certificates; repeatable")
        .elseFrom("AUTHCHIP_ISSUER")
        .shownAs("PATH");
    arguments
        .addRepeatable("--crl", m_options.revocationLists, "A file with revocation lists of these issuers; repeatable")
        .shownAs("FILE");
    const auto at =
        arguments
            .add("--at", m_at, "Check the dates of certificates at this time, for example 2026-01-31T12:00:00Z (now)")
            .shownAs("TIME");
    arguments
        .addFlag("--no-time-check", m_skipsTime, "Do not check the dates of certificates, on a board without a clock")
        .excludes(at);
}

void TrustArguments::interpret()
{
    m_options.checksTime = !m_skipsTime;
    if (!m_options.revocationLists.empty() && m_options.issuers.empty())
        throw Failure(kWrongUsage, "check the revocation lists", "No issuer is given",
                      "Name the issuers with --issuer.");
    if (m_at.empty())
        return;
    m_options.at = parseTime(m_at);
    if (!m_options.at)
        throw Failure(kWrongUsage, "check the dates at '" + m_at + "'",
                      "That is no time, or none that this system can count",
                      "Give a time in UTC, for example 2026-01-31T12:00:00Z or 2026-01-31.");
}

} // namespace VorelKestrel::Tool
