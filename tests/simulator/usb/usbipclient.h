#ifndef TESTS_SIMULATOR_USB_USBIPCLIENT_H
#define TESTS_SIMULATOR_USB_USBIPCLIENT_H

#include <optional>
#include <string>
#include <utility>

#include "common/bytes.h"
#include "common/scopeddescriptor.h"
#include "simulator/usb/i2ctinyusb.h"

/// What came back for a submission.
struct Completion
{
    int status = 0; // a negative errno: a stall is -EPIPE
    std::size_t count = 0;
    VorelKestrel::Bytes data;
};

/// The other side of USB/IP, with its own encoding: sends what usbip and the kernel's host controller would send.
class UsbIpClient
{
public:
    /// Connects to a server on the loopback address.
    explicit UsbIpClient(unsigned short port);
    /// Takes an end of a socket pair, on which the device counts as imported; or a socket to be connected.
    explicit UsbIpClient(VorelKestrel::ScopedDescriptor socket) : m_socket(std::move(socket)) {}

    void connectTo(unsigned short port) const;
    void send(const VorelKestrel::Bytes& message) const;
    /// The same to a server that may have hung up: returns false then.
    bool offer(const VorelKestrel::Bytes& message) const;
    /// The next bytes of the stream; fewer only if the other side has hung up.
    VorelKestrel::Bytes receive(std::size_t length) const;
    bool hungUp() const { return receive(1).empty(); }

    /// The server's list of devices.
    VorelKestrel::Bytes deviceList() const;
    /// Asks for the device. Returns the status of the reply.
    unsigned import(const std::string& busId) const;
    /// The same at a server that may have hung up: returns nothing then.
    std::optional<unsigned> tryToImport(const std::string& busId) const;

    Completion submit(unsigned endpoint, bool fromDevice, const VorelKestrel::Simulator::ControlRequest& setup,
                      const VorelKestrel::Bytes& data = {});
    /// Gives up the submission made last; the status that comes back.
    int unlink();

    /// A vendor request like those of the kernel's i2c-tiny-usb.
    Completion vendorIn(unsigned char request, unsigned value, unsigned index, std::size_t length);
    Completion vendorOut(unsigned char request, unsigned value, unsigned index, const VorelKestrel::Bytes& data = {});

    /// Sends an I2C message and returns its status: 1 acknowledged, 2 refused.
    unsigned writeMessage(unsigned address, const VorelKestrel::Bytes& data);
    unsigned status();

private:
    VorelKestrel::ScopedDescriptor m_socket;
    unsigned m_sequence = 0;
};

#endif
