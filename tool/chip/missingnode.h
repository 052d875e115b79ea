#ifndef TOOL_CHIP_MISSINGNODE_H
#define TOOL_CHIP_MISSINGNODE_H

#include <string>
#include <vector>

namespace VorelKestrel::Tool {

inline constexpr char kNumbersChange[] =
    "'i2cdetect -l' tells which bus is which: their numbers may change with the kernel.";

/// A node that does not exist, and what the system shows about it.
struct MissingNode
{
    std::string device;
    std::string target;             // of the symbolic link that the node is; empty: it is none
    bool isInDriver = false;        // i2c-dev has this bus, as sysfs shows
    bool isInKernel = false;        // the kernel has this bus
    std::vector<std::string> nodes; // below /dev, by number
};

MissingNode lookForNode(const std::string& device);

/// What to do about it. In the text, {device} is the node and {bus} its number.
std::string adviceAbout(const MissingNode& missing);

} // namespace VorelKestrel::Tool

#endif
