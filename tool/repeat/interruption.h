#ifndef TOOL_REPEAT_INTERRUPTION_H
#define TOOL_REPEAT_INTERRUPTION_H

namespace VorelKestrel::Tool {

/**
 * Records the first SIGINT or SIGTERM, so that the run can end in order; the second one ends the process. At most one
 * object at a time.
 */
class Interruption
{
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// Threads: any.
    bool hasCome() const;
};

} // namespace VorelKestrel::Tool

#endif
