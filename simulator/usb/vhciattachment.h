#ifndef SIMULATOR_USB_VHCIATTACHMENT_H
#define SIMULATOR_USB_VHCIATTACHMENT_H

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "simulator/usb/adapter.h"
#include "simulator/usb/servingthread.h"

namespace VorelKestrel::Simulator {

/**
 * The device, plugged into a port of the kernel's virtual host controller: the kernel's own drivers make a real
 * /dev/i2c-N of it. One end of a socket pair goes to the controller, so that no network is needed.
 *
 * The node exists from constructor to destructor; the kernel also removes it when the process dies.
 *
 * Ownership: the device stays the caller's and outlives the attachment.
 * Errors:    the constructor throws FrontError, which names the modules or rights that are missing.
 */
class VhciAttachment
{
public:
    /// @p root is where the kernel's /sys and /dev stand; @p patience how long it may take to make the node.
    explicit VhciAttachment(Adapter& device, std::filesystem::path root = "/",
                            std::chrono::milliseconds patience = std::chrono::seconds(30));
    VhciAttachment(const VhciAttachment&) = delete;
    VhciAttachment& operator=(const VhciAttachment&) = delete;
    ~VhciAttachment();

    /// The path of the node, for example "/dev/i2c-1".
    const std::string& node() const { return m_node; }
    /// Reports a hang-up to poll() when the kernel has let go of the device.
    int hangUpDescriptor() const { return m_serving->socket(); }

private:
    void checkModules(const std::string& driver) const;
    void plugIn(Adapter& device);
    bool tryPort(unsigned port, int socket) const;
    void waitForNode();
    void pullOut();
    std::string findNode() const;

    const std::filesystem::path m_root;
    const std::chrono::milliseconds m_patience;
    unsigned m_port = 0;
    std::optional<ServingThread> m_serving; // not empty once plugged in
    std::string m_node;
};

} // namespace VorelKestrel::Simulator

#endif
