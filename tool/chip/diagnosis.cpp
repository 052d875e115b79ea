#include "tool/chip/diagnosis.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "authchipdriver/registermap.h"
#include "common/generations.h"
#include "common/hex.h"

namespace VorelKestrel::Tool {
namespace {

using namespace ACD;

constexpr int kAnyError = 0;

/// What to do when a step is refused. In the texts, {device} is the node, {bus} its number, {address} the chip's
/// address, {halved} half of it, and {sysfs} the kernel's name of a device there.
struct Advice
{
    Step step;
    int error; // kAnyError: every other one
    const char* next;
};

// The first row that fits counts.
constexpr Advice kAdvice[] = {
    {Step::OpenNode, ENOENT,
     "'ls /dev/i2c-*' shows the nodes there are. If there is none, load the driver ('modprobe i2c-dev') and enable\n"
     "the bus in the device tree."},
    {Step::OpenNode, EACCES,
     "Run as root, or join the group that owns the node ('ls -l {device}'; on Debian: 'adduser USER i2c')."},
    {Step::OpenNode, EPERM, "Run as root; in a container, hand the node in ('--device {device}')."},
    {Step::OpenNode, ENXIO, "The node has no bus behind it: enable the bus in the device tree, or take another node."},
    {Step::OpenNode, ENODEV, "The node has no bus behind it: enable the bus in the device tree, or take another node."},
    {Step::OpenNode, EISDIR, "Name a node such as /dev/i2c-1."},
    {Step::OpenNode, kAnyError, "See 'ls -l {device}' and the kernel's messages ('dmesg')."},

    {Step::SetTimeout, ENOTTY, "{device} is no I2C bus. Name a node such as /dev/i2c-1."},
    {Step::SetTimeout, kAnyError, "Leave --bus-timeout out; the bus controller keeps its own timeout then."},

    {Step::SelectAddress, EBUSY,
     "A kernel driver holds the address. 'readlink /sys/bus/i2c/devices/{sysfs}/driver' names it; set it free with\n"
     "'echo {sysfs} > /sys/bus/i2c/devices/{sysfs}/driver/unbind', or remove it from the device tree."},
    {Step::SelectAddress, EINVAL, "The bus takes no such address; look the chip's 7-bit address up in the schematic."},
    {Step::SelectAddress, ENOTTY, "{device} is no I2C bus. Name a node such as /dev/i2c-1."},
    {Step::SelectAddress, kAnyError, "See the kernel's messages ('dmesg')."},

    {Step::SetRegister, ENXIO,
     "No chip answers there. Check address, supply, reset line and pull-ups; 'i2cdetect -y {bus}' shows who answers."},
    {Step::SetRegister, EREMOTEIO,
     "No chip answers there. Check address, supply, reset line and pull-ups; 'i2cdetect -y {bus}' shows who answers."},
    {Step::SetRegister, ETIMEDOUT,
     "The bus is stuck: a line is held low. Check the pull-ups and what else is on the bus; reset the chip."},
    {Step::SetRegister, EAGAIN,
     "Another master keeps the bus busy, or a line is held low. Check what else is on the bus."},
    {Step::SetRegister, kAnyError, "See the kernel's messages ('dmesg') for the bus controller."},

    {Step::ReadRegister, ETIMEDOUT,
     "The chip holds the clock for longer than the bus controller waits. Check the bus clock and the controller's\n"
     "support for clock stretching."},
    {Step::ReadRegister, kAnyError,
     "The chip took the register number and delivered nothing. Try a slower bus clock and check the pull-ups."},
};

void replaceAll(std::string& text, const std::string& placeholder, const std::string& value)
{
    for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at + value.size()))
        text.replace(at, placeholder.size(), value);
}

/// "7" of "/dev/i2c-7"; "N" of another name, a symbolic link for example.
std::string busNumber(const std::string& device)
{
    const auto at = device.rfind("i2c-");
    return at == std::string::npos ? "N" : device.substr(at + 4);
}

std::string fillIn(std::string text, const ChipLocation& location)
{
    const auto address = static_cast<std::uint32_t>(location.address);
    replaceAll(text, "{device}", location.device);
    replaceAll(text, "{bus}", busNumber(location.device));
    replaceAll(text, "{address}", toHex(address, 2));
    replaceAll(text, "{halved}", toHex(address / 2, 2));
    replaceAll(text, "{sysfs}", busNumber(location.device) + "-" + toHex(address, 4).substr(2));
    return text;
}

std::string describe(Step step)
{
    switch (step) {
    case Step::OpenNode:
        return "open {device}";
    case Step::SetTimeout:
        return "set the timeout of {device}";
    case Step::SelectAddress:
        return "select address {address} on {device}";
    case Step::SetRegister:
        return "address the chip at {address} on {device}";
    case Step::ReadRegister:
        break;
    }
    return "read from the chip at {address} on {device}";
}

std::string adviceFor(Step step, int error)
{
    for (const auto& advice : kAdvice) {
        if (advice.step == step && (advice.error == error || advice.error == kAnyError))
            return advice.next;
    }
    return "";
}

Failure versionFailure(const ChipLocation& location, const std::string& answer, const std::string& next)
{
    return {ExitStatus::Failed, fillIn("find a driver for the chip at {address} on {device}", location), answer, next};
}

} // namespace

bool isNoAnswer(Step step, int error)
{
    return step == Step::SetRegister && (error == ENXIO || error == EREMOTEIO);
}

bool mayBeEightBits(int address)
{
    constexpr int kLowestOfChips = 0x08; // those below are reserved
    return address % 2 == 0 && address / 2 >= kLowestOfChips;
}

Failure explainRefusal(Step step, int error, const ChipLocation& location)
{
    std::string next = adviceFor(step, error);
    if (isNoAnswer(step, error) && mayBeEightBits(location.address))
        next += "\nIf {address} is the address with the read/write bit, the 7-bit address is {halved}.";
    return {ExitStatus::Failed, fillIn(describe(step), location), describeSystemError(error), fillIn(next, location)};
}

Failure explainVersion(std::uint8_t deviceVersion, const ChipLocation& location)
{
    constexpr std::uint8_t kNobodyPullsDown = 0xff;
    const std::string answer = "Its device version is " + std::to_string(deviceVersion);
    if (const DeviceVersion* known = findDeviceVersion(deviceVersion))
        return versionFailure(location, answer + ": protocol " + known->protocol + ", which is not supported",
                              "A chip of protocol " + supportedProtocols() + " is needed.");
    if (deviceVersion == kNobodyPullsDown)
        return versionFailure(location, answer + ": a bus at rest reads so",
                              "Check the data line, the chip's supply and its reset line.");
    return versionFailure(
        location, answer + ", which is unknown",
        "Check that the chip at this address is the authentication coprocessor; 'authchip read' lists its\n"
        "registers.");
}

ScopedDescriptor openNode(const std::string& device)
{
    return ScopedDescriptor(
        open(device.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK)); // no pipe of that name makes us wait
}

void setBusTimeout(const std::string& device, int milliseconds)
{
    constexpr int kMillisecondsPerUnit = 10;
    const ChipLocation bus = {device, 0}; // of no chip
    const ScopedDescriptor node = openNode(device);
    if (node.get() < 0)
        throw explainRefusal(Step::OpenNode, errno, bus);
    const int units = (milliseconds + kMillisecondsPerUnit - 1) / kMillisecondsPerUnit;
    if (ioctl(node.get(), I2C_TIMEOUT, units) < 0)
        throw explainRefusal(Step::SetTimeout, errno, bus);
}

bool selectAddress(const ScopedDescriptor& node, int address)
{
    return ioctl(node.get(), I2C_SLAVE, address) == 0;
}

VersionAnswer askVersion(const ScopedDescriptor& node)
{
    VersionAnswer answer;
    AL::U8 byte = kRegisterDeviceVersion;
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
