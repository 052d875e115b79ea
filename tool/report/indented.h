#ifndef TOOL_REPORT_INDENTED_H
#define TOOL_REPORT_INDENTED_H

#include <cstddef>
#include <string>

namespace VorelKestrel::Tool {

/// Puts @p width blanks before every line of @p text but the first, which stands behind something already.
inline std::string indented(const std::string& text, std::size_t width)
{
    std::string result;
    for (const char character : text) {
        result += character;
        if (character == '\n')
            result.append(width, ' ');
    }
    return result;
}

} // namespace VorelKestrel::Tool

#endif
