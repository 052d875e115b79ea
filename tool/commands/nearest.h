#ifndef TOOL_COMMANDS_NEAREST_H
#define TOOL_COMMANDS_NEAREST_H

#include <string>
#include <vector>

namespace VorelKestrel::Tool {

/// The first of the @p words with the smallest edit distance to @p word. Requires: @p words is not empty.
std::string nearestWord(const std::string& word, const std::vector<std::string>& words);

/// Whether one word may be the other with a typing error: few letters have to be changed.
bool isNear(const std::string& word, const std::string& other);

} // namespace VorelKestrel::Tool

#endif
