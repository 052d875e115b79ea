#ifndef TOOL_COMMANDS_TABLE_H
#define TOOL_COMMANDS_TABLE_H

#include <vector>

#include "tool/commands/command.h"

namespace VorelKestrel::Tool {

/// All commands, in the order of the help. The command line and the help read this table; tests compare
/// the completion and the manual page with it.
const std::vector<CommandRow>& commandTable();

} // namespace VorelKestrel::Tool

#endif
