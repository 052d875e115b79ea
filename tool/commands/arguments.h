#ifndef TOOL_COMMANDS_ARGUMENTS_H
#define TOOL_COMMANDS_ARGUMENTS_H

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace VorelKestrel::Tool {

/// An option or a positional argument of a command, as it is declared.
class Argument
{
public:
    explicit Argument(CLI::Option& option) : m_option(&option) {}

    Argument& required();
    /// @p placeholder  what stands for the value in the help: "FILE".
    Argument& shownAs(const char* placeholder);
    Argument& mustBeAFile();
    Argument& excludes(const Argument& other);
    /// @p variable  gives the value if the command line does not.
    Argument& elseFrom(const char* variable);

private:
    CLI::Option* m_option;
};

/**
 * Where a command declares its options and positional arguments. What the command line gives is stored in the variables
 * that are named here. CLI11 stays behind it: its header takes the compiler longer than a command does.
 */
class Arguments
{
public:
    explicit Arguments(CLI::App& app) : m_app(&app) {}

    /// @p name  "-o,--output" is an option with its short form, "FILE" a positional argument.
    Argument add(const char* name, std::string& value, const char* help);
    Argument add(const char* name, std::optional<std::string>& value, const char* help);
    /// All words that follow.
    Argument addRest(const char* name, std::vector<std::string>& values, const char* help);
    /// An option that may be given several times, each time with one value.
    Argument addRepeatable(const char* name, std::vector<std::string>& values, const char* help);
    Argument addFlag(const char* name, bool& isGiven, const char* help);
    /// What the help says last.
    void footer(const char* text);

private:
    CLI::App* m_app;
};

} // namespace VorelKestrel::Tool

#endif
