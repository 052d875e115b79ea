#include "simulator/usb/i2ctinyusb.h"

#include <algorithm>
#include <string>

#include <linux/usb/ch9.h>

#include "simulator/node/i2cdevnode.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr AL::U8 kEcho = 0;
constexpr AL::U8 kFunctions = 1;
constexpr AL::U8 kDelay = 2;
constexpr AL::U8 kStatus = 3;
constexpr AL::U8 kMessage = 4;
constexpr AL::U8 kBegin = 1; // added to kMessage
constexpr AL::U8 kEnd = 2;

constexpr AL::U8 kFromDevice = USB_DIR_IN | USB_TYPE_STANDARD | USB_RECIP_DEVICE;
constexpr AL::U8 kToDevice = USB_DIR_OUT | USB_TYPE_STANDARD | USB_RECIP_DEVICE;
constexpr AL::U8 kFromInterface = USB_DIR_IN | USB_TYPE_STANDARD | USB_RECIP_INTERFACE;
constexpr AL::U8 kToInterface = USB_DIR_OUT | USB_TYPE_STANDARD | USB_RECIP_INTERFACE;
constexpr AL::U8 kFromEndpoint = USB_DIR_IN | USB_TYPE_STANDARD | USB_RECIP_ENDPOINT;
constexpr AL::U8 kVendorIn = USB_DIR_IN | USB_TYPE_VENDOR | USB_RECIP_INTERFACE;
constexpr AL::U8 kVendorOut = USB_DIR_OUT | USB_TYPE_VENDOR | USB_RECIP_INTERFACE;

constexpr AL::U8 kConfiguration = 1; // the only one
constexpr std::size_t kConfigurationLength = USB_DT_CONFIG_SIZE + USB_DT_INTERFACE_SIZE;
constexpr AL::U8 kUndrivenLine = 0xff; // what a host reads if no device answers

constexpr const char* kStrings[] = {"authchipdriver", "Simulated I2C bus", "0001"}; // numbered from 1
constexpr AL::U16 kAmericanEnglish = 0x0409;

Bytes littleEndian(unsigned long value, std::size_t length)
{
    Bytes bytes(length);
    for (AL::U8& byte : bytes) {
        byte = static_cast<AL::U8>(value);
        value >>= 8U;
    }
    return bytes;
}

/// A string descriptor of these 16-bit characters.
template<typename Characters>
Bytes stringDescriptor(const Characters& characters)
{
    Bytes descriptor{static_cast<AL::U8>(2 + 2 * characters.size()), USB_DT_STRING};
    for (const auto character : characters) {
        const Bytes bytes = littleEndian(static_cast<AL::U16>(character), 2);
        descriptor.insert(descriptor.end(), bytes.begin(), bytes.end());
    }
    return descriptor;
}

/// What goes to the host, cut to what the host asked for.
std::optional<ControlAnswer> send(const ControlRequest& request, Bytes data)
{
    data.resize(std::min<std::size_t>(data.size(), request.length));
    const std::size_t count = data.size();
    return ControlAnswer{count, std::move(data)};
}

std::optional<ControlAnswer> took(std::size_t count)
{
    return ControlAnswer{count, {}};
}

} // namespace

const I2cTinyUsb::Handler I2cTinyUsb::kHandlers[] = {
    {kFromDevice, USB_REQ_GET_DESCRIPTOR, USB_REQ_GET_DESCRIPTOR, &I2cTinyUsb::sendDescriptor},
    {kFromDevice, USB_REQ_GET_STATUS, USB_REQ_GET_STATUS, &I2cTinyUsb::sendZeros},
    {kFromInterface, USB_REQ_GET_STATUS, USB_REQ_GET_STATUS, &I2cTinyUsb::sendZeros},
    {kFromEndpoint, USB_REQ_GET_STATUS, USB_REQ_GET_STATUS, &I2cTinyUsb::sendZeros},
    {kFromDevice, USB_REQ_GET_CONFIGURATION, USB_REQ_GET_CONFIGURATION, &I2cTinyUsb::sendConfiguration},
    {kToDevice, USB_REQ_SET_CONFIGURATION, USB_REQ_SET_CONFIGURATION, &I2cTinyUsb::setConfiguration},
    {kFromInterface, USB_REQ_GET_INTERFACE, USB_REQ_GET_INTERFACE, &I2cTinyUsb::sendZeros},
    {kToInterface, USB_REQ_SET_INTERFACE, USB_REQ_SET_INTERFACE, &I2cTinyUsb::setNothing},
    {kVendorIn, kEcho, kEcho, &I2cTinyUsb::echo},
    {kVendorIn, kFunctions, kFunctions, &I2cTinyUsb::sendFunctions},
    {kVendorOut, kDelay, kDelay, &I2cTinyUsb::setNothing}, // the simulated bus has its own clock
    {kVendorIn, kStatus, kStatus, &I2cTinyUsb::sendStatus},
    {kVendorIn, kMessage, kMessage + kBegin + kEnd, &I2cTinyUsb::readMessage},
    {kVendorOut, kMessage, kMessage + kBegin + kEnd, &I2cTinyUsb::writeMessage},
};

const std::array<AL::U8, 18>& I2cTinyUsb::deviceDescriptor()
{
    static constexpr std::array<AL::U8, USB_DT_DEVICE_SIZE> kDescriptor = {
        USB_DT_DEVICE_SIZE,
        USB_DT_DEVICE,
        0x10,
        0x01, // USB 1.1
        USB_CLASS_VENDOR_SPEC,
        0,
        0,
        64, // bytes in a packet
        0x03,
        0x04, // vendor and product: the first pair of those that the driver knows
        0x31,
        0xc6,
        0x05,
        0x02, // release 2.05
        1,
        2,
        3, // the strings of maker, product and serial number
        1, // configuration
    };
    return kDescriptor;
}

const std::array<AL::U8, 18>& I2cTinyUsb::configurationDescriptor()
{
    static constexpr std::array<AL::U8, kConfigurationLength> kDescriptor = {
        USB_DT_CONFIG_SIZE,
        USB_DT_CONFIG,
        kConfigurationLength,
        0,
        1, // interface
        kConfiguration,
        0, // no string
        USB_CONFIG_ATT_ONE,
        5, // 10 mA
        USB_DT_INTERFACE_SIZE,
        USB_DT_INTERFACE,
        0, // its number
        0, // and alternate setting
        0, // no endpoint
        USB_CLASS_VENDOR_SPEC,
        0,
        0,
        0, // no string
    };
    return kDescriptor;
}

std::optional<ControlAnswer> I2cTinyUsb::control(const ControlRequest& request, const Bytes& data)
{
    const auto* const handler = std::find_if(std::begin(kHandlers), std::end(kHandlers), [&](const Handler& candidate) {
        return candidate.type == request.type && candidate.firstRequest <= request.request &&
               request.request <= candidate.lastRequest;
    });
    return handler == std::end(kHandlers) ? std::nullopt : (this->*handler->handle)(request, data);
}

I2cTinyUsb::Answer I2cTinyUsb::sendDescriptor(const ControlRequest& request, const Bytes& /*data*/)
{
    const unsigned index = request.value & 0xffU;
    switch (request.value >> 8U) {
    case USB_DT_DEVICE:
        return send(request, Bytes(deviceDescriptor().begin(), deviceDescriptor().end()));
    case USB_DT_CONFIG:
        if (index != 0)
            return std::nullopt;
        return send(request, Bytes(configurationDescriptor().begin(), configurationDescriptor().end()));
    case USB_DT_STRING:
        if (index == 0)
            return send(request, stringDescriptor(std::array<AL::U16, 1>{kAmericanEnglish}));
        if (index > std::size(kStrings))
            return std::nullopt;
        return send(request, stringDescriptor(std::string(kStrings[index - 1])));
    default:
        return std::nullopt;
    }
}

I2cTinyUsb::Answer I2cTinyUsb::sendZeros(const ControlRequest& request, const Bytes& /*data*/)
{
    return send(request, Bytes(request.request == USB_REQ_GET_STATUS ? 2 : 1));
}

I2cTinyUsb::Answer I2cTinyUsb::sendConfiguration(const ControlRequest& request, const Bytes& /*data*/)
{
    return send(request, {m_configuration});
}

I2cTinyUsb::Answer I2cTinyUsb::setConfiguration(const ControlRequest& request, const Bytes& /*data*/)
{
    if (request.value > kConfiguration)
        return std::nullopt;
    m_configuration = static_cast<AL::U8>(request.value);
    return took(0);
}

I2cTinyUsb::Answer I2cTinyUsb::setNothing(const ControlRequest& /*request*/, const Bytes& data)
{
    return took(data.size());
}

I2cTinyUsb::Answer I2cTinyUsb::echo(const ControlRequest& request, const Bytes& /*data*/)
{
    return send(request, littleEndian(request.value, 2));
}

I2cTinyUsb::Answer I2cTinyUsb::sendFunctions(const ControlRequest& request, const Bytes& /*data*/)
{
    return send(request, littleEndian(kBusFunctions, 4));
}

I2cTinyUsb::Answer I2cTinyUsb::sendStatus(const ControlRequest& request, const Bytes& /*data*/)
{
    return send(request, {static_cast<AL::U8>(m_status)});
}

I2cTinyUsb::Answer I2cTinyUsb::readMessage(const ControlRequest& request, const Bytes& /*data*/)
{
    if (!continuesTransfer(request))
        return std::nullopt;
    Bytes bytes(request.length, kUndrivenLine);
    const Transfer transfer = m_bus.read(request.index, bytes.data(), bytes.size());
    if (!settle(transfer))
        return std::nullopt;
    if (transfer.outcome == Outcome::Done)
        bytes.resize(transfer.count);
    return send(request, std::move(bytes));
}

I2cTinyUsb::Answer I2cTinyUsb::writeMessage(const ControlRequest& request, const Bytes& data)
{
    if (!continuesTransfer(request) || !settle(m_bus.write(request.index, data.data(), data.size())))
        return std::nullopt;
    return took(data.size());
}

/// Whether the message is at a place in a transfer where it can be: the first one begins it.
bool I2cTinyUsb::continuesTransfer(const ControlRequest& request)
{
    const bool possible = m_transferring || (request.request & kBegin) != 0;
    m_transferring = (request.request & kEnd) == 0 && possible;
    return possible;
}

/// Keeps what the host will ask for. Returns false if the bus failed in a way that the status cannot tell.
bool I2cTinyUsb::settle(const Transfer& transfer)
{
    if (transfer.outcome != Outcome::Done && transfer.outcome != Outcome::Refused)
        return false;
    m_status = transfer.outcome == Outcome::Done ? Status::Acknowledged : Status::Refused;
    return true;
}

} // namespace VorelKestrel::Simulator
