#ifndef TOOL_COMMANDS_STRAYWORD_H
#define TOOL_COMMANDS_STRAYWORD_H

#include <string>
#include <vector>

namespace VorelKestrel::Tool {

/// What was meant by words that a command line should not have.
struct StrayWord
{
    std::string found;
    std::string next;
};

/// @p words are all of the command line, @p strays those that no option and no command takes, and @p options the long
/// ones that there are, with their dashes. Requires: @p strays and @p options are not empty.
StrayWord explainStray(const std::vector<std::string>& words, const std::vector<std::string>& strays,
                       const std::vector<std::string>& options);
/// Whether the word begins with a dash that is no hyphen, as word processors write it.
bool beginsWithADash(const std::string& word);

} // namespace VorelKestrel::Tool

#endif
