#ifndef TOOL_COMMANDS_VERDICT_H
#define TOOL_COMMANDS_VERDICT_H

#include <string>

#include "common/bytes.h"
#include "common/generations.h"
#include "tool/chip/certificate.h"
#include "tool/chip/chip.h"
#include "tool/chip/trust.h"
#include "tool/chip/verification.h"
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

/// Examines the signature, which is the first check, and the certificate.
TrustReport examine(const Evidence& evidence, const Trust& trust);
/// The check of a signature that is none.
TrustCheck failedCheck(const SignatureFlaw& flaw);

/// Reads the certificate again; throws the Failure of a bus that changes bits if it differs from @p stored.
void requireSameCertificate(Chip& chip, const Bytes& stored, const ChipLocation& location);

/// Adds the certificate, what was signed, every check and the result to a report: for people a row for each check, for
/// programs an array.
void addVerdict(Report& report, const Evidence& evidence, const TrustReport& examination);

/// Prints the report; throws Failure (ExitStatus::NotAuthentic) if a check failed. @p tried  what was verified: "verify
/// the chip on ..."
void answer(const CommandContext& context, Report& report, const TrustReport& examination, const std::string& tried);

} // namespace VorelKestrel::Tool

#endif
