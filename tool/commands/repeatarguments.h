#ifndef TOOL_COMMANDS_REPEATARGUMENTS_H
#define TOOL_COMMANDS_REPEATARGUMENTS_H

#include <string>

#include "tool/repeat/repeatoptions.h"

namespace VorelKestrel::Tool {

class Arguments;

/// The options of every command that can be repeated.
class RepeatArguments
{
public:
    void declare(Arguments& arguments);
    /// Throws Failure (ExitStatus::Usage).
    void interpret();

    const RepeatOptions& options() const { return m_options; }

private:
    RepeatOptions m_options;
    std::string m_attempts;
    std::string m_time;
    std::string m_wait;
};

} // namespace VorelKestrel::Tool

#endif
