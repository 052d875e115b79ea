#include "simulator/usb/usbipsession.h"

#include <cerrno>
#include <optional>

#include "simulator/usb/usbip.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr AL::U32 kControlEndpoint = 0;
constexpr AL::U32 kDataMaximumLength = 0xffff; // of a control transfer
constexpr std::size_t kValueAt = UsbIp::kSetupAt + 2;

AL::U16 littleEndian16At(const Bytes& message, std::size_t place)
{
    return static_cast<AL::U16>(message.at(place) | message.at(place + 1) << 8U);
}

ControlRequest setupOf(const Bytes& header)
{
    return {header.at(UsbIp::kSetupAt), header.at(UsbIp::kSetupAt + 1), littleEndian16At(header, kValueAt),
            littleEndian16At(header, kValueAt + 2), littleEndian16At(header, kValueAt + 4)};
}

/// Whether the length of this submission is known, so that the next one can be read.
bool isPlain(const Bytes& header)
{
    const AL::U32 packets = UsbIp::number32At(header, UsbIp::kPacketCountAt);
    return (packets == UsbIp::kNotIsochronous || packets == 0) &&
           UsbIp::number32At(header, UsbIp::kLengthAt) <= kDataMaximumLength;
}

Bytes answerTo(const Bytes& header, AL::U32 command, int status)
{
    Bytes answer(UsbIp::kHeaderLength);
    UsbIp::setNumber32At(answer, UsbIp::kCommandAt, command);
    UsbIp::setNumber32At(answer, UsbIp::kSequenceAt, UsbIp::number32At(header, UsbIp::kSequenceAt));
    UsbIp::setNumber32At(answer, UsbIp::kStatusAt, static_cast<AL::U32>(status));
    return answer;
}

bool serveSubmission(int socket, UsbAdapter& device, const Bytes& header)
{
    if (!isPlain(header))
        return false;
    const bool fromDevice = UsbIp::number32At(header, UsbIp::kDirectionAt) == UsbIp::kDirectionIn;
    Bytes data;
    if (!fromDevice && !UsbIp::receive(socket, data, UsbIp::number32At(header, UsbIp::kLengthAt)))
        return false;

    std::optional<ControlAnswer> result;
    if (UsbIp::number32At(header, UsbIp::kEndpointAt) == kControlEndpoint)
        result = device.control(setupOf(header), data);
    Bytes answer = answerTo(header, UsbIp::kSubmitted, result ? 0 : -EPIPE);
    UsbIp::setNumber32At(answer, UsbIp::kPacketCountAt, UsbIp::kNotIsochronous);
    if (result) {
        UsbIp::setNumber32At(answer, UsbIp::kLengthAt, static_cast<AL::U32>(result->count));
        answer.insert(answer.end(), result->data.begin(), result->data.end());
    }
    return UsbIp::send(socket, answer);
}

bool serveCommand(int socket, UsbAdapter& device, const Bytes& header)
{
    switch (UsbIp::number32At(header, UsbIp::kCommandAt)) {
    case UsbIp::kSubmit:
        return serveSubmission(socket, device, header);
    case UsbIp::kUnlink:
        return UsbIp::send(socket, answerTo(header, UsbIp::kUnlinked, 0));
    default:
        return false;
    }
}

} // namespace

void serveTransfers(int socket, UsbAdapter& device)
{
    Bytes header;
    while (UsbIp::receive(socket, header, UsbIp::kHeaderLength) && serveCommand(socket, device, header)) {}
}

} // namespace VorelKestrel::Simulator
