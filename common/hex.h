#ifndef COMMON_HEX_H
#define COMMON_HEX_H

#include <cstdint>
#include <optional>
#include <string>

#include "common/bytes.h"

namespace VorelKestrel {

/// Two lower-case digits for each byte, without separators.
std::string toHex(const Bytes& bytes);
/// "0x" and at least @p digits digits: toHex(0x2a, 2) is "0x2a".
std::string toHex(std::uint32_t value, int digits);
/// Parses what toHex() writes, also with capitals, and with blanks or colons between bytes. None if it is invalid.
std::optional<Bytes> fromHex(const std::string& text);

} // namespace VorelKestrel

#endif
