#ifndef TOOL_COMMANDS_COMMANDLINE_H
#define TOOL_COMMANDS_COMMANDLINE_H

#include <iosfwd>
#include <memory>

#include "tool/commands/command.h"

namespace VorelKestrel::Tool {

/// What a command line asks for.
struct CommandLine
{
    const CommandRow* row = nullptr;  // null: nothing is left to do, after --help or a usage error
    std::unique_ptr<Command> command; // with its options; null if there is no row
    CommonOptions options;
    ExitStatus status = ExitStatus::Success; // of a program that has nothing left to do
};

/// Reads a command line by the table of commands, and prints help, version and usage errors. Throws Failure
/// (ExitStatus::Usage) for values that make no sense.
CommandLine parseCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace VorelKestrel::Tool

#endif
