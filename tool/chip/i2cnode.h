#ifndef TOOL_CHIP_I2CNODE_H
#define TOOL_CHIP_I2CNODE_H

#include <cstdint>
#include <string>

#include "common/scopeddescriptor.h"
#include "tool/chip/chiplocation.h"

// The i2c-dev node of a bus, without the library.
namespace VorelKestrel::Tool {

/// Whether the node and its bus exist. On a static /dev the node stays when the bus is gone.
bool isNodeThere(const std::string& device);
/// Opens the node. If the system refuses, the result is -1 and errno is set.
ScopedDescriptor openNode(const std::string& device);
/// Returns false and sets errno if the system refuses.
bool selectAddress(const ScopedDescriptor& node, int address);

/// Whether the adapter reports that it supports only SMBus transfers. False if it reports nothing.
bool lacksPlainI2c(const ScopedDescriptor& node);

/**
 * Sets the time after which the bus controller aborts a transfer, rounded up to the kernel's unit of 10 ms. It applies
 * to every program on the bus until it is set again: the kernel stores it for the controller, not for the open file.
 * Throws Failure.
 */
void setBusTimeout(const std::string& device, int milliseconds);

/// The result of one attempt to read the device version.
struct VersionAnswer
{
    bool registerSet = false;  // the chip acknowledged the register number ...
    bool registerRead = false; // ... and delivered its content
    int error = 0;             // errno, if one of the two is false
    std::uint8_t deviceVersion = 0;
};

/// Requires: the address is selected, and no other process uses the bus.
VersionAnswer askVersion(const ScopedDescriptor& node);
/// Throws a Failure unless the library has a driver for a chip with this answer.
void requireDriver(const VersionAnswer& answer, const ChipLocation& location);

} // namespace VorelKestrel::Tool

#endif
