#ifndef TOOL_CHIP_CHIPLOCATION_H
#define TOOL_CHIP_CHIPLOCATION_H

#include <string>

namespace VorelKestrel::Tool {

/// Where the chip is.
struct ChipLocation
{
    std::string device; // the i2c-dev node
    int address = 0;    // 7 bits
};

constexpr int kSevenBitMaximum = 0x7f; // of an address
// The addresses for devices; the others are reserved.
constexpr int kLowestAddress = 0x08;
constexpr int kHighestAddress = 0x77;

} // namespace VorelKestrel::Tool

#endif
