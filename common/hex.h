#ifndef COMMON_HEX_H
#define COMMON_HEX_H

#include <cstdint>
#include <optional>
#include <string>

#include "common/bytes.h"

namespace VorelKestrel {

/// Two lower-case digits a byte, nothing between them.
std::string toHex(const Bytes& bytes);
/// A value with "0x" before it and at least @p digits digits: toHex(0x2a, 2) is "0x2a".
std::string toHex(std::uint32_t value, int digits);
/// Reads what toHex() writes; capitals, and blanks or colons between bytes, are welcome. None if it is something else.
std::optional<Bytes> fromHex(const std::string& text);

} // namespace VorelKestrel

#endif
