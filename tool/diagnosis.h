#ifndef TOOL_DIAGNOSIS_H
#define TOOL_DIAGNOSIS_H

#include <cstdint>
#include <string>

#include "tool/failure.h"

namespace VorelKestrel::Tool {

/// Where the chip is.
struct ChipLocation
{
    std::string device; // the i2c-dev node
    int address;        // 7 bits
};

/// The first steps towards a chip, each of which can be refused.
enum class Step
{
    OpenNode,
    SetTimeout, // of the bus; only if it is asked for
    SelectAddress,
    SetRegister, // the chip takes the number of a register
    ReadRegister // the chip delivers what is in it
};

/// Explains a step that the system refused with @p error.
Failure explainRefusal(Step step, int error, const ChipLocation& location);
/// Explains a device version for which there is no driver.
Failure explainVersion(std::uint8_t deviceVersion, const ChipLocation& location);

/**
 * Has the bus controller give a transfer up after @p milliseconds, rounded up to the kernel's unit of 10 ms. Counts for
 * every program on the bus, until somebody sets it anew: the kernel keeps it with the controller, not with the file.
 * Throws Failure.
 */
void setBusTimeout(const std::string& device, int milliseconds);

/**
 * Finds out why the factory returned no driver: goes the same way itself, one try for each step, and explains the
 * first step that is refused. Waits for the bus as the library does.
 */
Failure diagnose(const ChipLocation& location);

} // namespace VorelKestrel::Tool

#endif
