#ifndef TOOL_REPORT_FILLEDIN_H
#define TOOL_REPORT_FILLEDIN_H

#include <initializer_list>
#include <string>
#include <utility>

namespace VorelKestrel::Tool {

/// The text with each placeholder, such as "{device}", replaced by its value.
inline std::string filledIn(std::string text,
                            std::initializer_list<std::pair<const char*, std::string>> valuesOfPlaceholders)
{
    for (const auto& [name, value] : valuesOfPlaceholders) {
        const std::string placeholder = name;
        for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at + value.size()))
            text.replace(at, placeholder.size(), value);
    }
    return text;
}

} // namespace VorelKestrel::Tool

#endif
