#ifndef TOOL_CHIP_I2CNODE_H
#define TOOL_CHIP_I2CNODE_H

#include <cstdint>
#include <string>

#include "common/scopeddescriptor.h"
#include "tool/chip/chiplocation.h"

// The i2c-dev node of a bus, without the library.
namespace VorelKestrel::Tool {

/// Opens the node. The result is -1, and errno is set, if the system refused.
ScopedDescriptor openNode(const std::string& device);
/// False, and errno is set, if the system refused.
bool selectAddress(const ScopedDescriptor& node, int address);

/// Whether the adapter says that it moves SMBus transfers only. False for what does not say.
bool lacksPlainI2c(const ScopedDescriptor& node);

/**
 * Sets after how many milliseconds the bus controller aborts a transfer; rounded up to the kernel's unit of 10 ms.
 * Applies to every program on the bus, until it is set again: the kernel keeps it with the controller, not with the
 * file. Throws Failure.
 */
void setBusTimeout(const std::string& device, int milliseconds);

/// What the chip says when it is asked for its device version once.
struct VersionAnswer
{
    bool registerSet = false;  // it took the register's number ...
    bool registerRead = false; // ... and delivered the content
    int error = 0;             // errno, if one of the two is false
    std::uint8_t deviceVersion = 0;
};

/// Requires: the chip is selected, and nobody else uses the bus.
VersionAnswer askVersion(const ScopedDescriptor& node);
/// Returns if the library has a driver for a chip that answers so; otherwise throws the Failure that explains why not.
void requireDriver(const VersionAnswer& answer, const ChipLocation& location);

} // namespace VorelKestrel::Tool

#endif
