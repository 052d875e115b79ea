#ifndef TOOL_COMMANDS_LOCKCOMMANDS_H
#define TOOL_COMMANDS_LOCKCOMMANDS_H

#include <iosfwd>

#include "tool/commands/arguments.h"

namespace VorelKestrel::Tool {

/// Shows the lock between processes as it is, without a part in it.
ExitStatus lockStatus(const Arguments& arguments, std::ostream& answer);
/// Makes the lock for a group of users, so that it stays. Changes nothing if that has been done already.
ExitStatus lockSeed(const Arguments& arguments, std::ostream& answer);
/// Removes the lock when no process uses it.
ExitStatus lockRemove(const Arguments& arguments, std::ostream& answer);

} // namespace VorelKestrel::Tool

#endif
