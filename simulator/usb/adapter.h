#ifndef SIMULATOR_USB_ADAPTER_H
#define SIMULATOR_USB_ADAPTER_H

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
    AL::U16 length; // of the data, whichever way it goes
};

/// How a control transfer ended, unless the device stalled it.
struct ControlAnswer
{
    std::size_t count; // bytes moved
    Bytes data;        // those that go to the host
};

/**
 * A USB device with an I2C bus behind it, as its host sees it: one interface, and no endpoint but the control endpoint.
 *
 * Threads:   one at a time.
 */
class Adapter
{
public:
    Adapter() = default;
    virtual ~Adapter() = default;
    Adapter(const Adapter&) = delete;
    Adapter& operator=(const Adapter&) = delete;

    /// Carries out a control transfer; @p data is what comes from the host. None: the device stalls.
    virtual std::optional<ControlAnswer> control(const ControlRequest& request, const Bytes& data) = 0;

    /// The descriptors as they are on the wire; that of the interface follows its configuration's.
    virtual Bytes deviceDescriptor() const = 0;
    virtual Bytes configurationDescriptor() const = 0;

    /// The kernel's module that drives it, for example "i2c-tiny-usb".
    virtual const char* driver() const = 0;
};

} // namespace VorelKestrel::Simulator

#endif
