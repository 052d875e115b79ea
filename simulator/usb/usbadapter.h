#ifndef SIMULATOR_USB_USBADAPTER_H
#define SIMULATOR_USB_USBADAPTER_H

#include <cstddef>
#include <optional>

#include <abstractionlibrary/types.h>

#include "common/bytes.h"

namespace VorelKestrel::Simulator {

/// The setup packet of a control transfer.
struct ControlRequest
{
    AL::U8 type; // direction, kind and recipient
    AL::U8 request;
    AL::U16 value;
    AL::U16 index;
    AL::U16 length; // of the data, in either direction
};

/// The result of a control transfer that the device did not stall.
struct ControlAnswer
{
    std::size_t count; // bytes moved
    Bytes data;        // to the host
};

/**
 * A USB device with an I2C bus behind it, as the USB host sees it: one interface, and only the control endpoint.
 *
 * Threads:   one at a time.
 */
class UsbAdapter
{
public:
    UsbAdapter() = default;
    virtual ~UsbAdapter() = default;
    UsbAdapter(const UsbAdapter&) = delete;
    UsbAdapter& operator=(const UsbAdapter&) = delete;

    /// Executes a control transfer. @p data  from the host. No result: the device stalls.
    virtual std::optional<ControlAnswer> control(const ControlRequest& request, const Bytes& data) = 0;

    /// The descriptors, as sent on the wire. The interface descriptor follows the configuration descriptor.
    virtual Bytes deviceDescriptor() const = 0;
    virtual Bytes configurationDescriptor() const = 0;

    /// The kernel module for this device, for example "i2c-tiny-usb".
    virtual const char* driver() const = 0;
};

} // namespace VorelKestrel::Simulator

#endif
