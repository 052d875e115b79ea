#ifndef TOOL_COMMANDS_COMMANDLINE_H
#define TOOL_COMMANDS_COMMANDLINE_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "tool/commands/command.h"
#include "tool/commands/configfile.h"
#include "tool/repeat/repeatoptions.h"

namespace VorelKestrel::Tool {

/// What a command line asks for.
struct CommandLine
{
    const CommandRow* row = nullptr;  // null: after --help or --version, when nothing is left to do
    std::unique_ptr<Command> command; // with its options; null if there is no row
    CommonOptions options;
    RepeatOptions repeat;
    std::vector<Setting> settings; // of the file of options
};

/// Parses a command line according to the table of commands; prints help and version. Throws Failure
/// (ExitStatus::Usage) if it is invalid.
CommandLine parseCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace VorelKestrel::Tool

#endif
