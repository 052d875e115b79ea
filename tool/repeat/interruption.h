#ifndef TOOL_REPEAT_INTERRUPTION_H
#define TOOL_REPEAT_INTERRUPTION_H

namespace VorelKestrel::Tool {

/**
 * Takes the first SIGINT or SIGTERM for a wish to come to an end; the second ends the process as ever. One at a time in
 * a process.
 */
class Interruption
{
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool hasCome() const;
};

} // namespace VorelKestrel::Tool

#endif
