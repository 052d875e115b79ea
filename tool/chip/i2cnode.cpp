#include "tool/chip/i2cnode.h"

#include <cerrno>
#include <filesystem>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "authchipdriver/registermap.h"
#include "common/generations.h"
#include "tool/chip/advice.h"

namespace VorelKestrel::Tool {

bool isNodeThere(const std::string& device)
{
    struct stat node = {};
    if (stat(device.c_str(), &node) != 0)
        return errno != ENOENT;
    const std::string devices = "/sys/dev/char/";
    const std::string number = std::to_string(major(node.st_rdev)) + ":" + std::to_string(minor(node.st_rdev));
    std::error_code error;
    return !S_ISCHR(node.st_mode) || !std::filesystem::exists(devices, error) ||
           std::filesystem::exists(devices + number, error);
}

ScopedDescriptor openNode(const std::string& device)
{
    return ScopedDescriptor(
        open(device.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK)); // so that a pipe of that name does not block
}

bool selectAddress(const ScopedDescriptor& node, int address)
{
    return ioctl(node.get(), I2C_SLAVE, address) == 0;
}

bool lacksPlainI2c(const ScopedDescriptor& node)
{
    unsigned long functions = 0;
    return ioctl(node.get(), I2C_FUNCS, &functions) == 0 && (functions & I2C_FUNC_I2C) == 0;
}

void setBusTimeout(const std::string& device, int milliseconds)
{
    constexpr int kMillisecondsPerUnit = 10;
    const ChipLocation bus = {device, 0}; // no chip
    const ScopedDescriptor node = openNode(device);
    if (node.get() < 0)
        throw explainRefusal(Step::OpenNode, errno, bus);
    const int units = (milliseconds + kMillisecondsPerUnit - 1) / kMillisecondsPerUnit;
    if (ioctl(node.get(), I2C_TIMEOUT, units) < 0)
        throw explainRefusal(Step::SetTimeout, errno, bus);
}

VersionAnswer askVersion(const ScopedDescriptor& node)
{
    VersionAnswer answer;
    std::uint8_t byte = ACD::kRegisterDeviceVersion;
    errno = 0; // a transfer that moves no byte does not set it
    answer.registerSet = write(node.get(), &byte, sizeof(byte)) == sizeof(byte);
    answer.registerRead = answer.registerSet && read(node.get(), &byte, sizeof(byte)) == sizeof(byte);
    answer.error = errno;
    answer.deviceVersion = byte;
    return answer;
}

void requireDriver(const VersionAnswer& answer, const ChipLocation& location)
{
    if (!answer.registerSet)
        throw explainRefusal(Step::SetRegister, answer.error, location);
    if (!answer.registerRead)
        throw explainRefusal(Step::ReadRegister, answer.error, location);
    if (findGeneration(answer.deviceVersion) == nullptr)
        throw explainVersion(answer.deviceVersion, location);
}

} // namespace VorelKestrel::Tool
