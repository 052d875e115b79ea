#ifndef TOOL_COMMANDS_TRUSTARGUMENTS_H
#define TOOL_COMMANDS_TRUSTARGUMENTS_H

#include <string>

#include "tool/chip/trust.h"

namespace VorelKestrel::Tool {

class Arguments;

/// The options about trust, for every command that verifies.
class TrustArguments
{
public:
    void declare(Arguments& arguments);
    /// Throws Failure (ExitStatus::Usage) for an invalid time.
    void interpret();

    const TrustOptions& options() const { return m_options; }

private:
    TrustOptions m_options;
    bool m_skipsTime = false;
    std::string m_at;
};

} // namespace VorelKestrel::Tool

#endif
