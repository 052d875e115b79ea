#ifndef TOOL_PROGRAM_H
#define TOOL_PROGRAM_H

#include <functional>
#include <iosfwd>

#include "tool/commands/arguments.h"
#include "tool/report/exitstatus.h"

namespace VorelKestrel::Tool {

/// Carries out a command and prints its answer. Throws Failure when there is no answer; an answer that proves false is
/// printed first.
using Carrier = std::function<ExitStatus(const Arguments&, std::ostream& answer)>;

/// What every program of the tool does from its command line to its exit status: reads the arguments, has them carried
/// out, and explains on standard error what failed.
int runProgram(int argc, const char* const* argv, std::ostream& answer, const Carrier& carryOut);

} // namespace VorelKestrel::Tool

#endif
