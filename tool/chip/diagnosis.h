#ifndef TOOL_CHIP_DIAGNOSIS_H
#define TOOL_CHIP_DIAGNOSIS_H

#include <cstdint>
#include <string>

#include "common/scopeddescriptor.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/// Where the chip is.
struct ChipLocation
{
    std::string device; // the i2c-dev node
    int address = 0;    // 7 bits
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

/// The node, opened; none and errno if that was refused.
ScopedDescriptor openNode(const std::string& device);
/// False and errno if it was refused.
bool selectAddress(const ScopedDescriptor& node, int address);

/// What the chip says when it is asked for its device version once.
struct VersionAnswer
{
    bool registerSet = false;  // it took the register's number ...
    bool registerRead = false; // ... and delivered the content
    int error = 0;             // of the system, if one of the two is false
    std::uint8_t deviceVersion = 0;
};

/// Requires: the chip is selected, and the bus is the caller's.
VersionAnswer askVersion(const ScopedDescriptor& node);
/// Throws the Failure that explains why there is no driver for a chip that answers so; returns if there is one.
void requireDriver(const VersionAnswer& answer, const ChipLocation& location);

/// Nobody takes a message at the address.
bool isNoAnswer(Step step, int error);
constexpr int kSevenBitMaximum = 0x7f; // of an address
/// An 8-bit address below 0x80 is a 7-bit address too, only of nobody.
bool mayBeEightBits(int address);

} // namespace VorelKestrel::Tool

#endif
