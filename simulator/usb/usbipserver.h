#ifndef SIMULATOR_USB_USBIPSERVER_H
#define SIMULATOR_USB_USBIPSERVER_H

#include <list>
#include <mutex>

#include "simulator/usb/i2ctinyusb.h"
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

    /// @p port 0 takes any that is free.
    UsbIpServer(I2cTinyUsb& device, AL::U16 port);
    UsbIpServer(const UsbIpServer&) = delete;
    UsbIpServer& operator=(const UsbIpServer&) = delete;
    ~UsbIpServer() = default;

    AL::U16 port() const;

private:
    void accept(int listener);
    void serve(int socket);
    void serveImport(int socket);

    I2cTinyUsb& m_device;
    std::mutex m_imported;                  // held by the connection that has the device
    std::list<ServingThread> m_connections; // only the listener's thread touches it
    ServingThread m_listener;
};

} // namespace VorelKestrel::Simulator

#endif
