#include "tool/program.h"

#include <iostream>

#include "common/escaped.h"
#include "tool/report/failure.h"
#include "tool/report/indented.h"

namespace VorelKestrel::Tool {
namespace {

ExitStatus explain(const Failure& failure)
{
    const std::string next = "  next: ";
    std::cerr << "authchip: cannot " << escapedLines(failure.tried()) << "\n  " << escapedLines(failure.answer())
              << '\n'
              << next << indented(escapedLines(failure.next()), next.size()) << '\n';
    return failure.status();
}

ExitStatus run(int argc, const char* const* argv, std::ostream& answer, const RunCommand& runCommand)
{
    const CommandLine line = parseCommandLine(argc, argv, answer, std::cerr);
    const ExitStatus status = line.row == nullptr ? line.status : runCommand(line, answer);
    answer.flush();
    if (!answer)
        throw Failure(ExitStatus::Failed, "write the answer", "Standard output takes no more",
                      "Look for a full disk or a program behind the pipe that has ended.");
    return status;
}

} // namespace

int runProgram(int argc, const char* const* argv, std::ostream& answer, const RunCommand& runCommand)
{
    try {
        return static_cast<int>(run(argc, argv, answer, runCommand));
    } catch (const Failure& failure) {
        answer.flush(); // an answer that proves false stands before its explanation
        return static_cast<int>(explain(failure));
    } catch (const std::exception& error) {
        std::cerr << "authchip: " << escapedLines(error.what()) << '\n';
        return static_cast<int>(ExitStatus::Failed);
    }
}

} // namespace VorelKestrel::Tool
