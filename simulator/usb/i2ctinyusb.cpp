#include "simulator/usb/i2ctinyusb.h"

#include <algorithm>
#include <array>
#include <iterator>
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
constexpr AL::U8 kUndrivenLine = 0xff; // read if no device answers

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

/// Answers with data, cut to the length that the host requested.
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

/// Type and request of a control transfer as one number.
constexpr unsigned kind(AL::U8 type, AL::U8 request)
{
    return static_cast<unsigned>(type) << 8U | request;
}

} // namespace

std::optional<ControlAnswer> I2cTinyUsb::control(const ControlRequest& request, const Bytes& data)
{
    switch (kind(request.type, request.request)) {
    case kind(kFromDevice, USB_REQ_GET_DESCRIPTOR):
        return sendDescriptor(request);
    case kind(kFromDevice, USB_REQ_GET_STATUS):
    case kind(kFromInterface, USB_REQ_GET_STATUS):
    case kind(kFromEndpoint, USB_REQ_GET_STATUS):
        return send(request, Bytes(2));
    case kind(kFromDevice, USB_REQ_GET_CONFIGURATION):
        return send(request, {m_configuration});
    case kind(kToDevice, USB_REQ_SET_CONFIGURATION):
        return setConfiguration(request.value);
    case kind(kFromInterface, USB_REQ_GET_INTERFACE):
        return send(request, Bytes(1));
    case kind(kToInterface, USB_REQ_SET_INTERFACE):
    case kind(kVendorOut, kDelay): // the simulated bus has its own clock
        return took(data.size());
    case kind(kVendorIn, kEcho):
        return send(request, littleEndian(request.value, 2));
    case kind(kVendorIn, kFunctions):
        return send(request, littleEndian(kBusFunctions, 4));
    case kind(kVendorIn, kStatus):
        return send(request, {static_cast<AL::U8>(m_status)});
    default:
        return moveMessage(request, data);
    }
}

Bytes I2cTinyUsb::deviceDescriptor() const
{
    return {
        USB_DT_DEVICE_SIZE,
        USB_DT_DEVICE,
        0x10,
        0x01, // USB 1.1
        USB_CLASS_VENDOR_SPEC,
        0,
        0,
        64, // bytes in a packet
        0x03,
        0x04, // vendor and product: the first pair that the driver knows
        0x31,
        0xc6,
        0x05,
        0x02, // release 2.05
        1,
        2,
        3, // strings: maker, product, serial number
        1, // configuration
    };
}

Bytes I2cTinyUsb::configurationDescriptor() const
{
    return {
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
}

I2cTinyUsb::Answer I2cTinyUsb::sendDescriptor(const ControlRequest& request) const
{
    const unsigned index = request.value & 0xffU;
    switch (request.value >> 8U) {
    case USB_DT_DEVICE:
        return send(request, deviceDescriptor());
    case USB_DT_CONFIG:
        if (index != 0)
            return std::nullopt;
        return send(request, configurationDescriptor());
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

I2cTinyUsb::Answer I2cTinyUsb::setConfiguration(AL::U16 configuration)
{
    if (configuration > kConfiguration)
        return std::nullopt;
    m_configuration = static_cast<AL::U8>(configuration);
    return took(0);
}

I2cTinyUsb::Answer I2cTinyUsb::moveMessage(const ControlRequest& request, const Bytes& data)
{
    if (request.request < kMessage || request.request > kMessage + kBegin + kEnd)
        return std::nullopt;
    if (request.type == kVendorIn)
        return readMessage(request);
    return request.type == kVendorOut ? writeMessage(request, data) : std::nullopt;
}

I2cTinyUsb::Answer I2cTinyUsb::readMessage(const ControlRequest& request)
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

/// Whether the message fits the state of the transfer: only the first message begins one.
bool I2cTinyUsb::continuesTransfer(const ControlRequest& request)
{
    const bool possible = m_transferring || (request.request & kBegin) != 0;
    m_transferring = (request.request & kEnd) == 0 && possible;
    return possible;
}

/// Stores the status for the host. Returns false if the bus failed in a way that no status describes.
bool I2cTinyUsb::settle(const Transfer& transfer)
{
    if (transfer.outcome != Outcome::Done && transfer.outcome != Outcome::Refused)
        return false;
    m_status = transfer.outcome == Outcome::Done ? Status::Acknowledged : Status::Refused;
    return true;
}

} // namespace VorelKestrel::Simulator
