#ifndef TOOL_COMMANDS_NEAREST_H
#define TOOL_COMMANDS_NEAREST_H

#include <string>
#include <vector>

namespace VorelKestrel::Tool {

/// The word of @p words that takes the fewest letters to add, leave out or replace; the first of several.
/// Requires: there is one.
std::string nearestWord(const std::string& word, const std::vector<std::string>& words);

} // namespace VorelKestrel::Tool

#endif
