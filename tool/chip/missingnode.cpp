#include "tool/chip/missingnode.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include <unistd.h>

#include "common/numbers.h"

namespace fs = std::filesystem;

namespace VorelKestrel::Tool {
namespace {

constexpr char kNodes[] = "/dev/i2c-";
constexpr char kDigits[] = "0123456789";

constexpr char kOnlyTheNodeIsMissing[] =
    "The kernel has this bus; only its node is missing. A container gets it with '--device {device}', a service\n"
    "without PrivateDevices=. Elsewhere nothing makes nodes: start udev, or run 'mdev -s' or 'mknod {device} c 89\n"
    "{bus}'.";
constexpr char kTheDriverIsMissing[] =
    "The kernel has this bus; the driver of its node is missing: 'modprobe i2c-dev' (CONFIG_I2C_CHARDEV).";
constexpr char kNoNodes[] =
    "There is no /dev/i2c-* at all. Load the driver ('modprobe i2c-dev'), and enable the bus in the device tree. A\n"
    "container gets a node with '--device /dev/i2c-N', a service without PrivateDevices=.";
constexpr char kEnableTheBus[] = "If yours is none of them, enable it in the device tree.";
constexpr char kAnAddress[] =
    "{device} looks like an address: --device names the node, such as /dev/i2c-1, and --address the chip.";

std::string withoutSlashes(const std::string& name)
{
    return name.substr(0, name.find_last_not_of('/') + 1); // npos + 1 is 0
}

/// The digits at the end.
std::string numberOf(const std::string& name)
{
    return name.substr(name.find_last_not_of(kDigits) + 1);
}

/// For "1", "i2c-1", "/dev/i2c1" or "/dev/i2c/1": the node that is meant; empty if that does not show.
std::string meantNode(const std::string& device)
{
    const std::string name = withoutSlashes(device);
    const std::string number = numberOf(name);
    std::string before = name.substr(0, name.size() - number.size());
    std::transform(before.begin(), before.end(), before.begin(),
                   [](unsigned char each) { return static_cast<char>(std::tolower(each)); });
    if (number.empty() || !(before.empty() || before.find("i2c") != std::string::npos))
        return "";
    const auto zeros = std::min(number.find_first_not_of('0'), number.size() - 1);
    const std::string meant = kNodes + number.substr(zeros);
    return meant == device ? "" : meant;
}

std::string targetOf(const std::string& link)
{
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(link.c_str(), target.data(), target.size());
    return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : "";
}

std::vector<std::string> findNodes()
{
    std::vector<std::string> nodes;
    std::error_code error;
    for (fs::directory_iterator entry("/dev", error), end; !error && entry != end; entry.increment(error)) {
        const std::string node = entry->path();
        if (node.rfind(kNodes, 0) == 0)
            nodes.push_back(node);
    }
    std::sort(nodes.begin(), nodes.end(), [](const std::string& one, const std::string& other) {
        return one.size() != other.size() ? one.size() < other.size() : one < other;
    });
    return nodes;
}

std::string listed(const std::vector<std::string>& nodes)
{
    constexpr std::size_t kMost = 6; // a computer can have dozens
    std::string text = nodes.size() == 1 ? "There is only " : "There are ";
    for (std::size_t i = 0; i < std::min(kMost, nodes.size()); ++i)
        text += (i == 0 ? "" : ", ") + nodes[i];
    return text + (nodes.size() > kMost ? " and others. " : ". ");
}

} // namespace

MissingNode lookForNode(const std::string& device)
{
    MissingNode missing;
    missing.device = device;
    missing.target = targetOf(device);
    if (device.rfind(kNodes, 0) == 0) {
        const std::string name = device.substr(device.rfind('/'));
        missing.isInDriver = access(("/sys/class/i2c-dev" + name).c_str(), F_OK) == 0;
        missing.isInKernel = access(("/sys/bus/i2c/devices" + name).c_str(), F_OK) == 0;
    }
    missing.nodes = findNodes();
    return missing;
}

std::string adviceAbout(const MissingNode& missing)
{
    const std::string meant = meantNode(missing.device);
    if (!missing.target.empty())
        return "It is a symbolic link to " + missing.target + ", which does not exist.\n" +
               (missing.nodes.empty() ? kNoNodes : listed(missing.nodes) + kNumbersChange);
    if (missing.isInDriver)
        return kOnlyTheNodeIsMissing;
    if (missing.isInKernel)
        return kTheDriverIsMissing;
    constexpr std::uint32_t kLargestAddress = 0xff;
    if (missing.device.rfind("0x", 0) == 0 && parseNumber(missing.device, kLargestAddress))
        return kAnAddress;
    const std::string there =
        missing.nodes.empty() ? kNoNodes : listed(missing.nodes) + kNumbersChange + "\n" + kEnableTheBus;
    return (meant.empty() ? "" : "If you mean " + meant + ", name it so.\n") + there;
}

} // namespace VorelKestrel::Tool
