// authchip: shows a chip to whoever brings a board up, and proves it.

#include <iostream>

#include <log4cplus/initializer.h>

#include "tool/commands.h"
#include "tool/indented.h"

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

ExitStatus explain(const Failure& failure)
{
    const std::string next = "  next: ";
    std::cerr << "authchip: cannot " << failure.tried() << "\n  " << failure.answer() << '\n'
              << next << indented(failure.next(), next.size()) << '\n';
    return failure.status();
}

ExitStatus run(int argc, const char* const* argv, std::ostream& answer)
{
    const ParseResult parsed = parseArguments(argc, argv, answer, std::cerr);
    if (parsed.arguments)
        runCommand(*parsed.arguments, answer);
    answer.flush();
    if (!answer)
        throw Failure(ExitStatus::Failed, "write the answer", "Standard output takes no more",
                      "Look for a full disk or a program behind the pipe that has ended.");
    return parsed.status;
}

} // namespace

int main(int argc, const char* const* argv)
{
    const log4cplus::Initializer log4cplusLife;
    ConsoleToStandardError console;
    try {
        return static_cast<int>(run(argc, argv, console.answer()));
    } catch (const Failure& failure) {
        console.answer().flush(); // an answer that proves false stands before its explanation
        return static_cast<int>(explain(failure));
    } catch (const std::exception& error) {
        std::cerr << "authchip: " << error.what() << '\n';
        return static_cast<int>(ExitStatus::Failed);
    }
}
