#ifndef TOOL_COMMANDS_CHIPREPORT_H
#define TOOL_COMMANDS_CHIPREPORT_H

#include <string>

#include "tool/chip/chip.h"
#include "tool/commands/command.h"
#include "tool/report/report.h"

// What several commands report about a chip.
namespace VorelKestrel::Tool {

/// "/dev/i2c-7, address 0x2a"
std::string describe(const ChipLocation& location);
/// A report that begins with the chip's location.
Report startReport(const CommonOptions& options);
void addProtocol(Report& report, const Chip& chip);
Bytes randomChallenge(const Generation& generation);

} // namespace VorelKestrel::Tool

#endif
