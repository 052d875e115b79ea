#ifndef SIMULATOR_USB_I2CTINYUSB_H
#define SIMULATOR_USB_I2CTINYUSB_H

#include "simulator/bus/bus.h"
#include "simulator/usb/usbadapter.h"

namespace VorelKestrel::Simulator {

/**
 * The adapter for Linux's driver i2c-tiny-usb. A bus message is a vendor request whose index is the address.
 *
 *     request     | direction | value      | index   | data
 *     0 echo      | in        | anything   |         | the value
 *     1 functions | in        |            |         | the functions of the bus, as i2c-dev's bits
 *     2 delay     | out       | of a bit   |         | none
 *     3 status    | in        |            |         | 0 none yet, 1 acknowledged, 2 refused
 *     4 to 7      | either    | i2c flags  | address | the message; plus 1 if first, plus 2 if last in a transfer
 *
 * A refused message still moves its data, and the status reports the refusal. A failed message stalls.
 *
 * Ownership: the bus stays the caller's and outlives the device.
 */
class I2cTinyUsb : public UsbAdapter
{
public:
    explicit I2cTinyUsb(Bus& bus) : m_bus(bus) {}

    std::optional<ControlAnswer> control(const ControlRequest& request, const Bytes& data) override;
    Bytes deviceDescriptor() const override;
    Bytes configurationDescriptor() const override;
    const char* driver() const override { return "i2c-tiny-usb"; }

private:
    using Answer = std::optional<ControlAnswer>;

    enum class Status : AL::U8
    {
        Idle = 0,
        Acknowledged = 1,
        Refused = 2
    };

    Answer sendDescriptor(const ControlRequest& request) const;
    Answer setConfiguration(AL::U16 configuration);
    Answer moveMessage(const ControlRequest& request, const Bytes& data);
    Answer readMessage(const ControlRequest& request);
    Answer writeMessage(const ControlRequest& request, const Bytes& data);
    bool continuesTransfer(const ControlRequest& request);
    bool settle(const Transfer& transfer);

    Bus& m_bus;
    Status m_status = Status::Idle;
    bool m_transferring = false; // between the first and the last message
    AL::U8 m_configuration = 0;
};

} // namespace VorelKestrel::Simulator

#endif
