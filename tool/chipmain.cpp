// authchip-chip: the commands of authchip that use the library.

#include <iostream>

#include <log4cplus/initializer.h>

#include "common/standarddescriptors.h"
#include "tool/commands/commands.h"
#include "tool/program.h"

namespace {

using namespace VorelKestrel::Tool;

/// Points std::cout, to which the library and console appenders write, at standard error, and leaves standard output
/// to the answer.
class ConsoleToStandardError
{
public:
    ConsoleToStandardError() : m_answer(std::cout.rdbuf(std::cerr.rdbuf())) {}
    ~ConsoleToStandardError() { std::cout.rdbuf(m_answer.rdbuf()); }
    ConsoleToStandardError(const ConsoleToStandardError&) = delete;
    ConsoleToStandardError& operator=(const ConsoleToStandardError&) = delete;

    std::ostream& answer() { return m_answer; }

private:
    std::ostream m_answer;
};

} // namespace

int main(int argc, const char* const* argv)
{
    VorelKestrel::occupyStandardDescriptors();
    const log4cplus::Initializer log4cplusLife;
    ConsoleToStandardError console;
    return runProgram(argc, argv, console.answer(), [](const Arguments& arguments, std::ostream& answer) {
        runCommand(arguments, answer);
        return ExitStatus::Success;
    });
}
