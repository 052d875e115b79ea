#ifndef TOOL_CHIP_CHIP_H
#define TOOL_CHIP_CHIP_H

#include <cstdint>
#include <memory>

#include "common/bytes.h"
#include "common/generations.h"

namespace VorelKestrel::Tool {

/// The chip's versions, ID and limits.
struct ChipIdentity
{
    std::uint8_t deviceVersion = 0;
    std::uint8_t firmwareVersion = 0;
    std::uint8_t protocolMajorVersion = 0;
    std::uint8_t protocolMinorVersion = 0;
    std::uint32_t deviceId = 0;
    int challengeMaximumLength = 0;
    int responseMaximumLength = 0;
    int certificateLength = 0;
};

/**
 * A detected chip. Results are values.
 *
 * Errors: Failure.
 */
class Chip
{
public:
    Chip() = default;
    virtual ~Chip() = default;
    Chip(const Chip&) = delete;
    Chip& operator=(const Chip&) = delete;

    virtual const Generation& generation() const = 0;
    virtual std::uint8_t deviceVersion() const = 0;
    virtual ChipIdentity identity() = 0;
    /// The certificate, as the chip stores it.
    virtual Bytes certificate() = 0;
    /// Requires: the challenge has the length of the generation.
    virtual Bytes sign(const Bytes& challenge) = 0;
};

/**
 * The registers at the address, without detection; also works with chips that the library refuses.
 *
 * Errors: Failure.
 */
class RawChip
{
public:
    RawChip() = default;
    virtual ~RawChip() = default;
    RawChip(const RawChip&) = delete;
    RawChip& operator=(const RawChip&) = delete;

    virtual Bytes read(std::uint8_t reg, int length) = 0;
    virtual void write(std::uint8_t reg, const Bytes& data) = 0;
};

/// The way to the chip. The commands know no other; behind it is the library, in the one module that links it.
class ChipAccess
{
public:
    ChipAccess() = default;
    virtual ~ChipAccess() = default;
    ChipAccess(const ChipAccess&) = delete;
    ChipAccess& operator=(const ChipAccess&) = delete;

    /// Detects the chip. Throws Failure.
    virtual std::unique_ptr<Chip> detect() = 0;
    /// Opens the bus and selects the address. Throws Failure.
    virtual std::unique_ptr<RawChip> open() = 0;
};

} // namespace VorelKestrel::Tool

#endif
