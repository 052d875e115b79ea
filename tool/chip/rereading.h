#ifndef TOOL_CHIP_REREADING_H
#define TOOL_CHIP_REREADING_H

#include <cstddef>
#include <optional>
#include <string>

#include "common/bytes.h"

namespace VorelKestrel::Tool {

/// The cause of what comes over the bus differently each time ...
inline constexpr char kBitErrors[] = "bit errors";
inline constexpr char kHowToMendTheBus[] =
    "Bits change on the bus: try a slower bus clock, and check the pull-ups, the length of the lines and the chip's\n"
    "supply.";
/// ... and of what is read from another register than the one that was named.
inline constexpr char kBusShared[] = "bus shared";
inline constexpr char kStopTheOtherProgram[] =
    "A program that reads the chip past the lock moves its register pointer: i2cget, i2cdump, a monitor, a kernel\n"
    "driver. 'fuser -v /dev/i2c-*' shows who has a node open; stop it. If there is none, try a slower bus clock, and\n"
    "check the pull-ups.";

/// What to do about one of these two causes; null for any other.
const char* howToMend(const std::string& cause);

/// How two readings of the same differ.
struct Difference
{
    const char* cause;
    std::string found;
    const char* next;
};

/// @p found says how two readings differ.
Difference explainDifference(const std::string& found, bool isOfAnotherRegister);
/// How two readings of a register of a few bytes differ; none if they are the same.
/// @p what  "the status (register 0x10)"
std::optional<Difference> findDifferenceOf(const std::string& what, const Bytes& first, const Bytes& second);

/// Whether more than one bit in @p share differs. Of unrelated bytes half of the bits do, and of a bad bus few.
/// Requires: bytes of the same length.
bool isUnrelated(const Bytes& first, const Bytes& second, std::size_t share);

} // namespace VorelKestrel::Tool

#endif
