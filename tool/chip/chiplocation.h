#ifndef TOOL_CHIP_CHIPLOCATION_H
#define TOOL_CHIP_CHIPLOCATION_H

#include <cstdint>
#include <optional>
#include <string>

#include "common/hex.h"

namespace VorelKestrel::Tool {

/// Where the chip is.
struct ChipLocation
{
    std::string device; // the i2c-dev node
    int address = 0;    // 7 bits
    /// Another address, which the same digits have in hexadecimal: for an address that was typed in decimal.
    std::optional<int> inHexadecimal = std::nullopt;
    /// Where it was written that node and address are these, as a sentence; empty: on the command line.
    std::string origin{};
};

/// "0x2a": an address as people write it.
inline std::string addressInHex(int address)
{
    return toHex(static_cast<std::uint32_t>(address), 2);
}

constexpr int kSevenBitMaximum = 0x7f; // of an address
// The addresses for devices; the others are reserved.
constexpr int kLowestAddress = 0x08;
constexpr int kHighestAddress = 0x77;

} // namespace VorelKestrel::Tool

#endif
