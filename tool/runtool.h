#ifndef TOOL_RUNTOOL_H
#define TOOL_RUNTOOL_H

#include <functional>
#include <iosfwd>

#include "tool/commands/commandline.h"
#include "tool/report/exitstatus.h"

namespace VorelKestrel::Tool {

/// Runs the command of a command line. Throws Failure if there is no answer.
using RunCommand = std::function<ExitStatus(const CommandLine&, std::ostream& answer)>;

/// What every program of the tool does from its command line to its exit status: reads the command line, has the
/// command run, and explains on standard error what failed.
int runTool(int argc, const char* const* argv, std::ostream& answer, const RunCommand& runCommand);

} // namespace VorelKestrel::Tool

#endif
