#ifndef TOOL_CHIP_CHIP_H
#define TOOL_CHIP_CHIP_H

#include <cstdint>

#include <authchipdriver/authchipdriver.h>

#include "common/generations.h"
#include "common/hex.h"
#include "tool/chip/diagnosis.h"
#include "tool/chip/driverlog.h"

namespace VorelKestrel::Tool {

/**
 * Finds out why the factory returned no driver: goes the same way itself, one try for each step, and explains the
 * first step that is refused. Waits for the bus as the library does.
 */
Failure diagnose(const ChipLocation& location);

/// Who the chip is and what it takes.
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
 * The chip behind the library's driver, with results as values and every failure explained.
 *
 * Errors: Failure (ExitStatus::Failed).
 */
class Chip
{
public:
    /// Has the library detect the chip.
    Chip(ChipLocation location, DriverLog& log);

    ChipIdentity identity();
    const Generation& generation() const { return *m_generation; }
    std::uint8_t deviceVersion() const { return m_deviceVersion; }
    /// The certificate as it is stored.
    Bytes certificate();
    /// Requires: a challenge of the scheme's length.
    Bytes sign(const Bytes& challenge);

private:
    void check(ACD::Error error, const char* tried, const char* next);

    ChipLocation m_location;
    DriverLog& m_log;
    ACD::AuthChipDriver* m_driver;            // the factory's; never null
    const Generation* m_generation = nullptr; // never null once constructed
    std::uint8_t m_deviceVersion = 0;
};

/**
 * The registers of whatever answers at the address, without detection: for chips that the library refuses.
 *
 * Errors: Failure (ExitStatus::Failed).
 */
class RawChip
{
public:
    explicit RawChip(ChipLocation location);

    Bytes read(std::uint8_t reg, int length);
    void write(std::uint8_t reg, const Bytes& data);

private:
    ChipLocation m_location;
};

} // namespace VorelKestrel::Tool

#endif
