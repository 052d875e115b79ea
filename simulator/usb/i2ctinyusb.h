#ifndef SIMULATOR_USB_I2CTINYUSB_H
#define SIMULATOR_USB_I2CTINYUSB_H

#include <array>
#include <cstddef>
#include <optional>

#include "common/bytes.h"
#include "simulator/bus/bus.h"

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
 * A USB device with an I2C bus behind it, of the kind that Linux's driver i2c-tiny-usb binds to: it has no endpoint but
 * the control endpoint, and a bus message is a vendor request with the address as its index.
 *
 *     request     | direction | value      | index   | data
 *     0 echo      | in        | anything   |         | the value
 *     1 functions | in        |            |         | what the bus can do, in i2c-dev's bits
 *     2 delay     | out       | of a bit   |         | none
 *     3 status    | in        |            |         | 0 none yet, 1 acknowledged, 2 refused
 *     4 to 7      | either    | i2c flags  | address | the message; 1 is added at the begin, 2 at the end of a transfer
 *
 * A refused message still moves its data, and the status reports it; a failed one is stalled.
 *
 * Threads:   one at a time.
 * Ownership: the bus stays the caller's and outlives the device.
 */
class I2cTinyUsb
{
public:
    explicit I2cTinyUsb(Bus& bus) : m_bus(bus) {}

    /// Carries out a control transfer; @p data is what comes from the host. None: the device stalls.
    std::optional<ControlAnswer> control(const ControlRequest& request, const Bytes& data);

    /// The device and the configuration descriptor, as they are on the wire.
    static const std::array<AL::U8, 18>& deviceDescriptor();
    static const std::array<AL::U8, 18>& configurationDescriptor();

private:
    using Answer = std::optional<ControlAnswer>;
    struct Handler
    {
        AL::U8 type;
        AL::U8 firstRequest;
        AL::U8 lastRequest;
        Answer (I2cTinyUsb::*handle)(const ControlRequest& request, const Bytes& data);
    };
    static const Handler kHandlers[];

    enum class Status : AL::U8
    {
        Idle = 0,
        Acknowledged = 1,
        Refused = 2
    };

    Answer sendDescriptor(const ControlRequest& request, const Bytes& data);
    Answer sendZeros(const ControlRequest& request, const Bytes& data);
    Answer sendConfiguration(const ControlRequest& request, const Bytes& data);
    Answer setConfiguration(const ControlRequest& request, const Bytes& data);
    Answer setNothing(const ControlRequest& request, const Bytes& data);
    Answer echo(const ControlRequest& request, const Bytes& data);
    Answer sendFunctions(const ControlRequest& request, const Bytes& data);
    Answer sendStatus(const ControlRequest& request, const Bytes& data);
    Answer readMessage(const ControlRequest& request, const Bytes& data);
    Answer writeMessage(const ControlRequest& request, const Bytes& data);
    bool continuesTransfer(const ControlRequest& request);
    bool settle(const Transfer& transfer);

    Bus& m_bus;
    Status m_status = Status::Idle;
    bool m_transferring = false; // between a begin and its end
    AL::U8 m_configuration = 0;
};

} // namespace VorelKestrel::Simulator

#endif
