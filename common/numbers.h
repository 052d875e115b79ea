#ifndef COMMON_NUMBERS_H
#define COMMON_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string>

namespace VorelKestrel {

/// Reads a number from 0 to @p maximum, in decimal ("42") or hexadecimal ("0x2a"). None if the text is anything else;
/// a leading zero does not make a number octal.
std::optional<std::uint32_t> parseNumber(const std::string& text, std::uint32_t maximum);

} // namespace VorelKestrel

#endif
