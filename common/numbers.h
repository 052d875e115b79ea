#ifndef COMMON_NUMBERS_H
#define COMMON_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string>

namespace VorelKestrel {

/// Parses a number from 0 to @p maximum, in decimal ("42") or hexadecimal ("0x2a"). None if it is invalid. A leading
/// zero does not mean octal.
std::optional<std::uint32_t> parseNumber(const std::string& text, std::uint32_t maximum);

/// "1 byte", "20 bytes"
std::string inBytes(std::size_t count);

} // namespace VorelKestrel

#endif
