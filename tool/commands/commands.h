#ifndef TOOL_COMMANDS_COMMANDS_H
#define TOOL_COMMANDS_COMMANDS_H

#include <iosfwd>

#include "tool/commands/arguments.h"

namespace VorelKestrel::Tool {

/// Carries out one command and prints its answer to @p out. Throws Failure when there is no answer; an answer that
/// proves false is printed first.
void runCommand(const Arguments& arguments, std::ostream& out);

} // namespace VorelKestrel::Tool

#endif
