#ifndef SIMULATOR_USB_VHCIATTACHMENT_H
#define SIMULATOR_USB_VHCIATTACHMENT_H

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "simulator/usb/servingthread.h"
#include "simulator/usb/usbadapter.h"

namespace VorelKestrel::Simulator {

/**
 * The device, plugged into a port of the kernel's virtual host controller. The kernel's drivers then create a real
 * /dev/i2c-N. One end of a socket pair goes to the controller, so that no network is needed.
 *
 * The node exists from constructor to destructor. The kernel also removes it when the process dies.
 *
 * Ownership: the device stays the caller's and outlives the attachment.
 * Errors:    the constructor throws FrontError, which names the modules or rights that are missing.
 */
class VhciAttachment
{
public:
    /// @p root  the folder with the kernel's /sys and /dev. @p patience  how long to wait for the node.
    explicit VhciAttachment(UsbAdapter& device, std::filesystem::path root = "/",
                            std::chrono::milliseconds patience = std::chrono::seconds(30));
    VhciAttachment(const VhciAttachment&) = delete;
    VhciAttachment& operator=(const VhciAttachment&) = delete;
    ~VhciAttachment();

    /// The path of the node, for example "/dev/i2c-1".
    const std::string& node() const { return m_node; }
    /// poll() reports a hang-up here when the kernel has released the device.
    int hangUpDescriptor() const { return m_serving->socket(); }

private:
    void checkModules(const std::string& driver) const;
    void plugIn(UsbAdapter& device);
    bool tryPort(unsigned port, int socket) const;
    void waitForNode();
    void pullOut();
    std::string findNode() const;

    const std::filesystem::path m_root;
    const std::chrono::milliseconds m_patience;
    unsigned m_port = 0;
    std::optional<ServingThread> m_serving; // not empty when plugged in
    std::string m_node;
};

} // namespace VorelKestrel::Simulator

#endif
