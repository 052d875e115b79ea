#include "tool/commands/arguments.h"

#include <CLI/CLI.hpp>

namespace VorelKestrel::Tool {

Argument& Argument::required()
{
    m_option->required();
    return *this;
}

Argument& Argument::shownAs(const char* placeholder)
{
    m_option->type_name(placeholder);
    return *this;
}

Argument& Argument::mustBeAFile()
{
    CLI::Validator validator = CLI::ExistingFile;
    validator.description(""); // or the help shows a second placeholder
    m_option->check(validator);
    return *this;
}

Argument& Argument::excludes(const Argument& other)
{
    m_option->excludes(other.m_option);
    return *this;
}

Argument& Argument::elseFrom(const char* variable)
{
    m_option->envname(variable);
    return *this;
}

Argument Arguments::add(const char* name, std::string& value, const char* help)
{
    return Argument(*m_app->add_option(name, value, help));
}

Argument Arguments::add(const char* name, std::optional<std::string>& value, const char* help)
{
    return Argument(*m_app->add_option(name, value, help));
}

Argument Arguments::addRest(const char* name, std::vector<std::string>& values, const char* help)
{
    return Argument(*m_app->add_option(name, values, help));
}

Argument Arguments::addRepeatable(const char* name, std::vector<std::string>& values, const char* help)
{
    return Argument(*m_app->add_option(name, values, help)->allow_extra_args(false));
}

Argument Arguments::addFlag(const char* name, bool& isGiven, const char* help)
{
    return Argument(*m_app->add_flag(name, isGiven, help));
}

void Arguments::footer(const char* text)
{
    m_app->footer(text);
}

} // namespace VorelKestrel::Tool
