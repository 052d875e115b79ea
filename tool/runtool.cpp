#include "tool/runtool.h"

#include <cstring>
#include <iostream>

#include "tool/commands/configfile.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

/// Whether the answer has to be JSON, as far as that shows in a command line that may make no sense.
bool asksForJson(int argc, const char* const* argv)
{
    for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        if (std::strcmp(argv[i], "--json") == 0)
            return true;
    }
    return false;
}

/// A file that an option names may turn out wrong only when it is used.
ExitStatus runWithOrigin(const CommandLine& line, std::ostream& answer, const RunCommand& runCommand)
{
    try {
        return runCommand(line, answer);
    } catch (const Failure& failure) {
        throw withOrigin(failure, line.settings);
    }
}

ExitStatus run(int argc, const char* const* argv, std::ostream& answer, bool& json, const RunCommand& runCommand)
{
    const CommandLine line = parseCommandLine(argc, argv, answer, std::cerr);
    json = line.options.json;
    const ExitStatus status = line.row == nullptr ? ExitStatus::Success : runWithOrigin(line, answer, runCommand);
    answer.flush();
    if (!answer)
        throw Failure("file not written", "write the answer", "Standard output takes no more",
                      "Look for a full disk, a limit ('ulimit -f') or a program behind the pipe that has ended.");
    return status;
}

int end(const Failure& failure, bool json, std::ostream& answer)
{
    if (json && !failure.isAfterAnswer())
        printJson(failure, answer);
    answer.flush(); // an answer that proves false stands before its explanation
    explain(failure, std::cerr);
    return static_cast<int>(failure.status());
}

} // namespace

int runTool(int argc, const char* const* argv, std::ostream& answer, const RunCommand& runCommand)
{
    bool json = asksForJson(argc, argv);
    try {
        return static_cast<int>(run(argc, argv, answer, json, runCommand));
    } catch (const Failure& failure) {
        return end(failure, json, answer);
    } catch (const std::exception& error) {
        return end(Failure("unexpected", "", error.what(), "Run it again with -vv, and report what it shows."), json,
                   answer);
    }
}

} // namespace VorelKestrel::Tool
