#ifndef TOOL_COMMANDS_COMMANDLINE_H
#define TOOL_COMMANDS_COMMANDLINE_H

#include <iosfwd>
#include <memory>

#include "tool/commands/command.h"
#include "tool/repeat/repeatoptions.h"

namespace VorelKestrel::Tool {

/// What a command line asks for.
struct CommandLine
{
    const CommandRow* row = nullptr;  // null: nothing is left to do, after --help or --version
    std::unique_ptr<Command> command; // with its options; null if there is no row
    CommonOptions options;
    RepeatOptions repeat;
};

/// Reads a command line by the table of commands, and prints help and version. Throws Failure
/// (ExitStatus::Usage) for what makes no sense.
CommandLine parseCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace VorelKestrel::Tool

#endif
