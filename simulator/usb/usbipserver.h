#ifndef SIMULATOR_USB_USBIPSERVER_H
#define SIMULATOR_USB_USBIPSERVER_H

#include <chrono>
#include <list>
#include <mutex>

#include "simulator/usb/adapter.h"
#include "simulator/usb/servingthread.h"

namespace VorelKestrel::Simulator {

/**
 * Offers the device to USB/IP clients on this machine, over TCP on the loopback address: any may list it, one at a time
 * may import it.
 *
 * Ownership: the device stays the caller's and outlives the server.
 * Errors:    the constructor throws FrontError.
 */
class UsbIpServer
{
public:
    static constexpr AL::U16 kDefaultPort = 3240;

    /// What a client may take of the server. Whoever has the device may be silent for as long as it likes.
    struct Limits
    {
        std::size_t connections = 64;          // those beyond are hung up on at once
        std::chrono::milliseconds idle{30000}; // before a client has asked for something
    };

    /// @p port 0 takes any that is free.
    UsbIpServer(Adapter& device, AL::U16 port, const Limits& limits);
    UsbIpServer(Adapter& device, AL::U16 port) : UsbIpServer(device, port, Limits()) {}
    UsbIpServer(const UsbIpServer&) = delete;
    UsbIpServer& operator=(const UsbIpServer&) = delete;
    ~UsbIpServer() = default;

    AL::U16 port() const;

private:
    void accept(int listener);
    void serve(int socket);
    void serveImport(int socket);

    Adapter& m_device;
    const Limits m_limits;
    std::mutex m_imported;                  // held by the connection that has the device
    std::list<ServingThread> m_connections; // only the listener's thread touches it
    ServingThread m_listener;
};

} // namespace VorelKestrel::Simulator

#endif
