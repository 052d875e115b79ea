#ifndef TOOL_REPETITION_H
#define TOOL_REPETITION_H

#include "tool/commands/command.h"
#include "tool/repeat/repeatoptions.h"

namespace VorelKestrel::Tool {

/**
 * Runs a command again and again, as the options say, and tells what came of it. Failures are counted; only what is
 * wrong with the command line ends the run. SIGINT and SIGTERM end it after the attempt that runs.
 *
 * The result is that of an attempt that was not authentic, if there was one, else the largest status.
 * Errors: Failure.
 */
ExitStatus repeat(Command& command, const CommandContext& context, const RepeatOptions& options);

/// Waits for the chip as long as @p options say. Throws the Failure of the last try.
void waitForChip(const CommandContext& context, const RepeatOptions& options);

} // namespace VorelKestrel::Tool

#endif
