#ifndef SIMULATOR_USB_USBIPSERVER_H
#define SIMULATOR_USB_USBIPSERVER_H

#include <chrono>
#include <list>
#include <mutex>

#include "simulator/usb/servingthread.h"
#include "simulator/usb/usbadapter.h"

namespace VorelKestrel::Simulator {

/**
 * Offers the device to USB/IP clients on this machine, over TCP on the loopback address. Any client may list it; one at
 * a time may import it.
 *
 * Ownership: the device stays the caller's and outlives the server.
 * Errors:    the constructor throws FrontError.
 */
class UsbIpServer
{
public:
    static constexpr AL::U16 kDefaultPort = 3240;

    /// Limits for clients. A client that has imported the device may be silent without limit.
    struct Limits
    {
        std::size_t connections = 64;          // further ones are closed at once
        std::chrono::milliseconds idle{30000}; // until a client has sent its request
    };

    /// @p port  0: any free port.
    UsbIpServer(UsbAdapter& device, AL::U16 port, const Limits& limits);
    UsbIpServer(UsbAdapter& device, AL::U16 port) : UsbIpServer(device, port, Limits()) {}
    UsbIpServer(const UsbIpServer&) = delete;
    UsbIpServer& operator=(const UsbIpServer&) = delete;
    ~UsbIpServer() = default;

    AL::U16 port() const;

private:
    void accept(int listener);
    void serve(int socket);
    void serveImport(int socket);

    UsbAdapter& m_device;
    const Limits m_limits;
    std::mutex m_imported;                  // locked by the connection that has the device
    std::list<ServingThread> m_connections; // used only by the listener's thread
    ServingThread m_listener;
};

} // namespace VorelKestrel::Simulator

#endif
