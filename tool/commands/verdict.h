#ifndef TOOL_COMMANDS_VERDICT_H
#define TOOL_COMMANDS_VERDICT_H

#include <string>

#include "common/bytes.h"
#include "common/generations.h"
#include "tool/chip/certificate.h"
#include "tool/chip/trust.h"
#include "tool/commands/command.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {

/// What a chip, or somebody in its name, has answered.
struct Evidence
{
    const Generation& generation;
    const Certificate& certificate;
    Bytes challenge;
    Bytes signature;
};

/**
 * Adds the certificate, what was signed, every check and the result to a report: for people a row for each check, for
 * programs an array. Returns the examination, with the check of the signature first.
 */
TrustReport addVerdict(Report& report, const Evidence& evidence, const Trust& trust);

/// Prints the report; throws Failure (ExitStatus::NotAuthentic) if a check failed. @p tried  what was verified: "verify
/// the chip on ..."
void answer(const CommandContext& context, Report& report, const TrustReport& examination, const std::string& tried);

} // namespace VorelKestrel::Tool

#endif
