#ifndef TOOL_COMMANDS_OUTPUT_H
#define TOOL_COMMANDS_OUTPUT_H

#include <iosfwd>
#include <string>

#include "common/bytes.h"

namespace CLI {
class App;
}

namespace VorelKestrel::Tool {

/// The option -o of a command: where the bytes go that the command is about.
class OutputOption
{
public:
    void declare(CLI::App& app, const char* description);
    /// Throws Failure (ExitStatus::Usage) if content and JSON would share standard output.
    void requirePlace(bool json) const;
    bool isGiven() const { return !m_file.empty(); }

    /// Puts @p content where -o says. Returns whether the report is still wanted: not if the content took its place on
    /// standard output. Throws Failure.
    bool store(const std::string& content, std::ostream& answer) const;
    bool store(const Bytes& content, std::ostream& answer) const;

private:
    std::string m_file; // empty is none, "-" is standard output
};

} // namespace VorelKestrel::Tool

#endif
