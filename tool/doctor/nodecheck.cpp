#include <cerrno>

#include <sys/stat.h>

#include "common/i2cdevice.h"
#include "tool/chip/advice.h"
#include "tool/doctor/checks.h"

namespace VorelKestrel::Tool {
namespace {

Finding notANode(const std::string& found)
{
    return {kNoI2cNode, found, "Name a node such as /dev/i2c-1; 'ls /dev/i2c-*' shows those there are."};
}

constexpr char kAboutADirectory[] =
    "Name a node such as /dev/i2c-1. If the name is right, a container runtime made the directory because\n"
    "the host has no such node: remove it, load the host's driver, then hand the node in.";

} // namespace

std::vector<Finding> checkNode(Examination& examination)
{
    const std::string& device = examination.location.device;
    struct stat status = {};
    const bool exists = stat(device.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode))
        return {{kNoI2cNode, device + " is a directory", kAboutADirectory}};
    if (exists && !S_ISCHR(status.st_mode))
        return {notANode(device + " is no character device")};
    if (exists && !mayBeI2cNode(device, status))
        return {notANode(device + " is a device of another kind")};
    examination.isBus = true;
    examination.node = openNode(device);
    if (examination.node.get() >= 0 && lacksPlainI2c(examination.node))
        return {refused(causeOfRefusal(Step::SetRegister, EOPNOTSUPP),
                        explainRefusal(Step::SetRegister, EOPNOTSUPP, examination.location))};
    if (examination.node.get() >= 0)
        return {healthy(device + " opens")};
    const int error = errno;
    return {
        refused(causeOfRefusal(Step::OpenNode, error), explainRefusal(Step::OpenNode, error, examination.location))};
}

std::vector<Finding> checkAddress(Examination& examination)
{
    const ChipLocation& location = examination.location;
    const std::string address = addressInHex(location.address);
    if (location.address > kSevenBitMaximum)
        return {eightBitAddress(location, "an I2C address has 7 bits")};
    if (location.address < kLowestAddress || location.address > kHighestAddress)
        return {{"reserved address", address + " is outside 0x08 to 0x77, the addresses that chips may have",
                 "Look the chip's 7-bit address up in the schematic; 'i2cdetect -y' shows who answers."}};
    if (examination.node.get() < 0)
        return {skipped()};
    if (!selectAddress(examination.node, location.address)) {
        const int error = errno;
        examination.isBus = error != ENOTTY;
        return {
            refused(causeOfRefusal(Step::SelectAddress, error), explainRefusal(Step::SelectAddress, error, location))};
    }
    if (examination.busTimeout)
        setBusTimeout(location.device, *examination.busTimeout);
    return {healthy(address + " is free of kernel drivers")};
}

Finding eightBitAddress(const ChipLocation& location, const std::string& found)
{
    return {"8-bit address", found + ": " + addressInHex(location.address) + " includes the read/write bit",
            "Leave that bit out: --address " + addressInHex(location.address / 2) + "."};
}

} // namespace VorelKestrel::Tool
