#include "simulator/usb/vhciattachment.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linux/usb/ch9.h>

#include "simulator/node/fronterror.h"
#include "simulator/usb/usbip.h"
#include "simulator/usb/usbipsession.h"

namespace fs = std::filesystem;

namespace VorelKestrel::Simulator {
namespace {

constexpr const char* kController = "sys/devices/platform/vhci_hcd.0";
constexpr unsigned kFreePort = 4; // in the status file
constexpr std::chrono::milliseconds kPollPause{5};

/// A kernel module, and what it creates in /sys, whether built in or loaded.
struct Module
{
    std::string name;
    fs::path trace;
};

/// A line of the controller's status.
struct Port
{
    std::string hub; // hs or ss: the speed of its devices
    unsigned number = 0;
    unsigned status = 0;
    std::string busId; // of the device that is plugged in
};

std::vector<Port> portsOf(const fs::path& controller)
{
    std::vector<Port> ports;
    std::ifstream status(controller / "status");
    for (std::string line; std::getline(status, line);) {
        std::istringstream columns(line);
        Port port;
        std::string ignored;
        if (columns >> port.hub >> port.number >> port.status >> ignored >> ignored >> ignored >> port.busId)
            ports.push_back(port);
    }
    return ports;
}

/// Writes a kernel file with one call. Returns 0 or the errno.
int writeTo(const fs::path& file, const std::string& text)
{
    const ScopedDescriptor descriptor(open(file.c_str(), O_WRONLY | O_CLOEXEC));
    if (descriptor.get() < 0)
        return errno;
    return write(descriptor.get(), text.data(), text.size()) < 0 ? errno : 0;
}

/// The name of a folder i2c-N; empty for other names.
std::string adapterName(const fs::path& folder)
{
    const std::string name = folder.filename();
    return name.rfind("i2c-", 0) == 0 ? name : std::string();
}

template<typename Condition>
bool waitUntil(std::chrono::milliseconds patience, Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(kPollPause);
    }
    return true;
}

} // namespace

VhciAttachment::VhciAttachment(UsbAdapter& device, fs::path root, std::chrono::milliseconds patience)
    : m_root(std::move(root)), m_patience(patience)
{
    checkModules(device.driver());
    plugIn(device);
    try {
        waitForNode();
    } catch (...) {
        pullOut();
        throw;
    }
}

VhciAttachment::~VhciAttachment()
{
    pullOut();
    const fs::path node = m_root / m_node.substr(1);
    waitUntil(m_patience, [&] { return !fs::exists(node); });
}

void VhciAttachment::checkModules(const std::string& driver) const
{
    const Module modules[] = {
        {"vhci-hcd", kController},
        {driver, fs::path("sys/bus/usb/drivers") / driver},
        {"i2c-dev", "sys/class/i2c-dev"},
    };
    std::string missing;
    for (const Module& module : modules)
        if (!fs::exists(m_root / module.trace))
            missing += " " + module.name;
    if (!missing.empty())
        throw FrontError("the kernel lacks" + missing + "; as root, run: modprobe -a" + missing);
}

void VhciAttachment::plugIn(UsbAdapter& device)
{
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
        throw FrontError(std::string("cannot create a pair of sockets: ") + std::strerror(errno));
    ScopedDescriptor ours(sockets[0]);
    const ScopedDescriptor kernels(sockets[1]);
    for (const Port& port : portsOf(m_root / kController)) {
        if (port.hub != "hs" || port.status != kFreePort || !tryPort(port.number, kernels.get()))
            continue;
        m_port = port.number;
        m_serving.emplace(std::move(ours), [&device](int socket) { serveTransfers(socket, device); });
        return;
    }
    throw FrontError("all ports of the virtual USB host controller are used; stop a program that uses one");
}

/// Returns false if another process took the port.
bool VhciAttachment::tryPort(unsigned port, int socket) const
{
    const fs::path file = m_root / kController / "attach";
    std::ostringstream request;
    request << port << ' ' << socket << ' ' << UsbIp::kDeviceId << ' ' << USB_SPEED_FULL;
    const int error = writeTo(file, request.str());
    if (error == EACCES || error == EPERM)
        throw FrontError("cannot write " + file.string() + ": " + std::strerror(error) + "; run this as root");
    if (error != 0 && error != EBUSY)
        throw FrontError("cannot write " + file.string() + ": " + std::strerror(error));
    return error == 0;
}

void VhciAttachment::waitForNode()
{
    waitUntil(m_patience, [this] {
        m_node = findNode();
        return !m_node.empty() || m_serving->ended();
    });
    if (!m_node.empty())
        return;
    if (m_serving->ended())
        throw FrontError("the kernel has released the USB device; its log (dmesg) says why");
    throw FrontError("the kernel has not created an I2C node for the USB device in " +
                     std::to_string(m_patience.count()) + " ms; its log (dmesg) may say why");
}

void VhciAttachment::pullOut()
{
    writeTo(m_root / kController / "detach", std::to_string(m_port));
}

/// The node that the driver has created for our device; empty if there is none yet.
std::string VhciAttachment::findNode() const
{
    const auto ports = portsOf(m_root / kController);
    const auto ours =
        std::find_if(ports.begin(), ports.end(), [this](const Port& port) { return port.number == m_port; });
    if (ours == ports.end())
        return {};
    std::error_code notThereYet;
    for (const auto& entry :
         fs::directory_iterator(m_root / "sys/bus/usb/devices" / (ours->busId + ":1.0"), notThereYet)) {
        const std::string name = adapterName(entry.path());
        if (!name.empty() && fs::exists(m_root / "dev" / name))
            return "/dev/" + name;
    }
    return {};
}

} // namespace VorelKestrel::Simulator
