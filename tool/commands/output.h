#ifndef TOOL_COMMANDS_OUTPUT_H
#define TOOL_COMMANDS_OUTPUT_H

#include <iosfwd>
#include <string>

#include "common/bytes.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

class Arguments;

constexpr char kNameAFile[] = "Name a file that can be written, in a folder that exists.";

/// Writes @p content into the file. Throws Failure.
void storeFile(const std::string& path, const std::string& content);
/// The failure to write a file, as errno tells it.
Failure unwritable(const std::string& path);

/// The option -o of a command: where its bytes go.
class OutputOption
{
public:
    void declare(Arguments& arguments, const char* description);
    /// Throws Failure (ExitStatus::Usage) if content and JSON would share standard output.
    void requirePlace(bool json) const;
    bool isGiven() const { return !m_file.empty(); }

    /// Writes @p content to the place that -o names. Returns false if that is standard output, where no report may
    /// follow. Throws Failure.
    bool store(const std::string& content, std::ostream& answer) const;
    bool store(const Bytes& content, std::ostream& answer) const;

private:
    std::string m_file; // empty: none; "-": standard output
};

} // namespace VorelKestrel::Tool

#endif
