#ifndef TOOL_COMMANDS_DOCTOR_H
#define TOOL_COMMANDS_DOCTOR_H

#include <iosfwd>

#include "tool/commands/arguments.h"

namespace VorelKestrel::Tool {

/**
 * Looks for what can be wrong between a process and the chip: the node, the address, the lock between processes, the
 * chip, its generation. Says what it found and what to do, a line each, and ends with Failed if something is wrong.
 *
 * It never blocks: it looks at the lock before it takes it, waits for it and for the chip within bounds, and stays away
 * from a bus that it cannot have to itself.
 */
ExitStatus examine(const Arguments& arguments, std::ostream& answer);

} // namespace VorelKestrel::Tool

#endif
