#include "tool/chip/advice.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string>
#include <utility>

#include "common/generations.h"
#include "common/hex.h"
#include "tool/chip/bitslip.h"
#include "tool/chip/missingnode.h"
#include "tool/chip/permission.h"
#include "tool/report/filledin.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kAnyError = 0;

/// A refusal: what it means, and what to do about it. In the texts, {device} is the node, {bus} its number, {address}
/// the chip's address, {halved} half of it, and {sysfs} the kernel's name of a device there.
struct Refusal
{
    Step step;
    int error;         // kAnyError: every other one
    const char* cause; // for programs
    const char* next;
};

// What several errors call for.
constexpr char kLoadTheDriver[] =
    "Load the driver ('modprobe i2c-dev'). If 'ls /sys/bus/i2c/devices' then shows no i2c-{bus}, the kernel has no\n"
    "such bus: enable it in the device tree, or use another node.";
constexpr char kNameANode[] = "{device} is no I2C bus. Name a node such as /dev/i2c-1.";
constexpr char kCheckTheChip[] =
    "No chip answers there; 'i2cdetect -y {bus}' shows who does. If others do, check the chip's address (a strap may\n"
    "change it), supply and reset line. If nobody does, check that this is its bus ('i2cdetect -l': numbers change "
    "with\n"
    "the kernel, and each channel of a multiplexer is a bus of its own), pull-ups and level shifters, and that SDA "
    "and\n"
    "SCL are not exchanged.";
constexpr char kFiltered[] =
    "The node is open, and a filter refuses what is done with it: a service's SystemCallFilter=, the seccomp profile "
    "of\n"
    "a container, or a security module ('ausearch -m avc,seccomp'). Let ioctl(), read() and write() pass.";
constexpr char kUseAnotherController[] =
    "The bus controller refuses messages of this length: a limit of the controller or its driver, which 'dmesg' names\n"
    "('adapter quirk'). The library reads a certificate in pages of up to 128 bytes and cannot split them. Use\n"
    "another bus, or the pins of this one with the driver i2c-gpio.";
constexpr char kMaybeNoAnswer[] =
    "Some adapters report a missing acknowledgement so. If 'i2cdetect -y {bus}' shows other chips but not {address},\n"
    "this chip does not answer: check address, supply, reset line and pull-ups. If it shows none, check the bus, and\n"
    "the kernel's messages ('dmesg').";
constexpr char kControllerGone[] = "The bus controller is gone, suspended or without power: an adapter that was "
                                   "unplugged, or a driver that was unloaded,\n"
                                   "for example. 'dmesg' tells which. Connect it again, or resume it; the node may "
                                   "then have another number ('ls /dev/i2c-*').";

// The first row that fits counts.
constexpr Refusal kRefusals[] = {
    {Step::OpenNode, ENOENT, "node missing", "'ls /dev/i2c-*' shows the nodes there are."}, // of which more is said
    {Step::OpenNode, EACCES, "no permission",
     "Run as root, or join the group that owns the node ('ls -l {device}'; on Debian: 'adduser USER i2c')."},
    {Step::OpenNode, EPERM, "no permission",
     "Run as root. If you are root, a container, a service or a security module refuses it: hand the node into the\n"
     "container ('--device {device}'), allow it in the unit ('DeviceAllow={device} rw'), or look at the audit log."},
    {Step::OpenNode, ENXIO, "no driver behind the node", kLoadTheDriver},
    {Step::OpenNode, ENODEV, "no driver behind the node", kLoadTheDriver},
    {Step::OpenNode, EMFILE, "out of descriptors",
     "This process has no descriptor left: raise 'ulimit -n', or close what the shell has open."},
    {Step::OpenNode, ENFILE, "out of descriptors",
     "The system has no descriptor left ('cat /proc/sys/fs/file-nr' counts them): end the programs that hold many."},
    {Step::OpenNode, EISDIR, "node does not open", "Name a node such as /dev/i2c-1."},
    {Step::OpenNode, kAnyError, "node does not open", "See 'ls -l {device}' and the kernel's messages ('dmesg')."},

    {Step::SetTimeout, ENOTTY, kNoI2cNode, kNameANode},
    {Step::SetTimeout, EPERM, "no permission", kFiltered},
    {Step::SetTimeout, EACCES, "no permission", kFiltered},
    {Step::SetTimeout, kAnyError, "timeout refused",
     "Leave --bus-timeout out; the bus controller keeps its own timeout then."},

    {Step::SelectAddress, EBUSY, "kernel driver bound",
     "A kernel driver holds the address. 'readlink /sys/bus/i2c/devices/{sysfs}/driver' names it; unbind it with\n"
     "'echo {sysfs} > /sys/bus/i2c/devices/{sysfs}/driver/unbind', or remove it from the device tree."},
    {Step::SelectAddress, EINVAL, "address refused",
     "The bus takes no such address; look the chip's 7-bit address up in the schematic."},
    {Step::SelectAddress, ENOTTY, kNoI2cNode, kNameANode},
    {Step::SelectAddress, EPERM, "no permission", kFiltered},
    {Step::SelectAddress, EACCES, "no permission", kFiltered},
    {Step::SelectAddress, kAnyError, "address refused", "See the kernel's messages ('dmesg')."},

    {Step::SetRegister, ENXIO, "no answer", kCheckTheChip},
    {Step::SetRegister, EREMOTEIO, "no answer", kCheckTheChip},
    {Step::SetRegister, ETIMEDOUT, "bus stuck",
     "Either a line is held low, or this adapter reports a missing acknowledgement as a timeout. Try an address that\n"
     "no chip has ('i2cdetect -y {bus}'): if it fails at once, only this chip is missing. If each address takes long,\n"
     "the bus is stuck: switch the chips off and on (a restart in the middle of a read leaves one that holds SDA "
     "low),\n"
     "check the pull-ups, and that the device tree gives both pins to the controller (pinctrl)."},
    {Step::SetRegister, EIO, "bus fails", kMaybeNoAnswer},
    {Step::SetRegister, EPROTO, "bus fails", kMaybeNoAnswer},
    {Step::SetRegister, ENODEV, "bus fails", kControllerGone},
    {Step::SetRegister, ESHUTDOWN, "bus fails", kControllerGone},
    {Step::SetRegister, EACCES, "bus fails", kControllerGone},
    {Step::SetRegister, EOPNOTSUPP, "no plain I2C",
     "This adapter speaks SMBus only, and the chip needs plain I2C messages ('i2cdetect -F {bus}' lists what the\n"
     "adapter can do). Use another bus."},
    {Step::SetRegister, EAGAIN, "bus busy",
     "Another master keeps the bus busy, or a line stays low, as without pull-ups or with a short. Measure both lines\n"
     "while nobody sends: they have to be high. Then check what else is on the bus."},
    {Step::SetRegister, EPERM, "no permission", kFiltered},
    {Step::SetRegister, kAnyError, "bus fails", "See the kernel's messages ('dmesg') for the bus controller."},

    {Step::ReadRegister, ETIMEDOUT, "bus stuck",
     "The chip holds the clock for longer than the bus controller waits. Check the bus clock and the controller's\n"
     "support for clock stretching."},
    {Step::ReadRegister, EOPNOTSUPP, "message too long", kUseAnotherController},
    {Step::ReadRegister, EPERM, "no permission", kFiltered},
    {Step::ReadRegister, kAnyError, "nothing delivered",
     "The chip took the register number and delivered nothing. Try a slower bus clock and check the pull-ups."},

    {Step::WriteRegister, EOPNOTSUPP, "message too long", kUseAnotherController},
    {Step::WriteRegister, EPERM, "no permission", kFiltered},
    {Step::WriteRegister, kAnyError, "bus fails", "See the kernel's messages ('dmesg') for the bus controller."},
};

/// "7" of "/dev/i2c-7"; "N" of another name, a symbolic link for example.
std::string busNumber(const std::string& device)
{
    const auto at = device.rfind("i2c-");
    return at == std::string::npos ? "N" : device.substr(at + 4);
}

std::string fillIn(std::string text, const ChipLocation& location)
{
    const std::string bus = busNumber(location.device);
    return filledIn(std::move(text),
                    {{"{device}", location.device},
                     {"{bus}", bus},
                     {"{address}", addressInHex(location.address)},
                     {"{halved}", addressInHex(location.address / 2)},
                     {"{sysfs}", bus + "-" + toHex(static_cast<std::uint32_t>(location.address), 4).substr(2)}});
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
    case Step::WriteRegister:
        return "write to the chip at {address} on {device}";
    case Step::ReadRegister:
        break;
    }
    return "read from the chip at {address} on {device}";
}

const Refusal& findRefusal(Step step, int error)
{
    return *std::find_if(std::begin(kRefusals), std::end(kRefusals), [=](const Refusal& row) {
        return row.step == step && (row.error == error || row.error == kAnyError); // each step has a row for any error
    });
}

/// What else there is to say to a chip that does not answer: how its address may have been meant.
std::string adviceAboutAddress(const ChipLocation& location)
{
    std::string advice;
    if (mayBeEightBits(location.address))
        advice += "\nIf {address} is the address with the read/write bit, the 7-bit address is {halved}.";
    if (location.inHexadecimal)
        advice +=
            "\nIf you mean " + addressInHex(*location.inHexadecimal) + ", write it so: without 0x a number is decimal.";
    return advice;
}

/// Whether a version with a driver makes this one when it arrives a bit late, behind one of the idle data line.
bool isShiftedVersion(std::uint8_t version)
{
    constexpr unsigned kFirstBit = 0x80;
    return (version & kFirstBit) != 0 && findGeneration(static_cast<std::uint8_t>(version << 1U | 1U)) != nullptr;
}

Failure versionFailure(const ChipLocation& location, const std::string& answer, const std::string& next)
{
    return {"version without driver", fillIn("find a driver for the chip at {address} on {device}", location), answer,
            next};
}

} // namespace

bool isNoAnswer(Step step, int error)
{
    return step == Step::SetRegister && (error == ENXIO || error == EREMOTEIO);
}

bool mayBeEightBits(int address)
{
    return address % 2 == 0 && address / 2 >= kLowestAddress;
}

Failure explainRefusal(Step step, int error, const ChipLocation& location)
{
    std::string next = findRefusal(step, error).next;
    if (isNoAnswer(step, error))
        next += adviceAboutAddress(location);
    if (step == Step::OpenNode && error == ENOENT)
        next = adviceAbout(lookForNode(location.device));
    if (!location.origin.empty() && (isNoAnswer(step, error) || (step == Step::OpenNode && error == ENOENT)))
        next += "\n" + location.origin;
    const char* permission =
        step == Step::OpenNode && error == EACCES ? adviceAboutPermission(location.device) : nullptr;
    if (permission != nullptr)
        next = permission;
    const std::string answer = error != 0 ? describeSystemError(error) : "0 of 1 bytes came";
    return Failure(causeOfRefusal(step, error), fillIn(describe(step), location), answer, fillIn(next, location))
        .withSystemError(error);
}

const char* causeOfRefusal(Step step, int error)
{
    return findRefusal(step, error).cause;
}

Failure explainVersion(std::uint8_t deviceVersion, const ChipLocation& location)
{
    constexpr std::uint8_t kNobodyPullsDown = 0xff;
    constexpr std::uint8_t kHeldLow = 0x00;
    const std::string answer = "Its device version is " + std::to_string(deviceVersion);
    if (const DeviceVersion* known = findDeviceVersion(deviceVersion))
        return versionFailure(location, answer + ": protocol " + known->protocol + ", which is not supported",
                              "A chip of protocol " + supportedProtocols() + " is needed.");
    if (deviceVersion == kNobodyPullsDown)
        return versionFailure(location, answer + ", which is what an idle bus reads",
                              "Check the data line, the chip's supply and its reset line. Or another device has this "
                              "address, perhaps on\n"
                              "another bus than you think: " +
                                  std::string(kNumbersChange));
    if (deviceVersion == kHeldLow)
        return versionFailure(
            location, answer + ", which is what a data line that is held low reads",
            "Check the data line and what else is on it; if other chips on this bus answer as they should,\n"
            "this one is no authentication coprocessor.");
    if (isShiftedVersion(deviceVersion))
        return versionFailure(location, answer + ", which is unknown: that of a supported chip, shifted by one bit",
                              kHowToMendTheSlip);
    return versionFailure(
        location, answer + ", which is unknown",
        fillIn("Another device may have this address, alone or beside the chip. Hold the chip in reset: if "
               "'i2cdetect -y {bus}'\nstill shows {address}, another one answers there. 'authchip read' lists its "
               "registers.\nOr this is another bus than you think: " +
                   std::string(kNumbersChange),
               location));
}

} // namespace VorelKestrel::Tool
