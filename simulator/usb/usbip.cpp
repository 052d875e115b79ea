#include "simulator/usb/usbip.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>

namespace VorelKestrel::Simulator::UsbIp {

void append16(Bytes& message, AL::U16 number)
{
    message.push_back(static_cast<AL::U8>(number >> 8U));
    message.push_back(static_cast<AL::U8>(number));
}

void append32(Bytes& message, AL::U32 number)
{
    append16(message, static_cast<AL::U16>(number >> 16U));
    append16(message, static_cast<AL::U16>(number));
}

void appendText(Bytes& message, const char* text, std::size_t length)
{
    const std::size_t end = message.size() + length;
    message.insert(message.end(), text, text + std::min(std::strlen(text), length));
    message.resize(end);
}

AL::U16 number16At(const Bytes& message, std::size_t place)
{
    return static_cast<AL::U16>(message.at(place) << 8U | message.at(place + 1));
}

AL::U32 number32At(const Bytes& message, std::size_t place)
{
    return static_cast<AL::U32>(number16At(message, place)) << 16U | number16At(message, place + 2);
}

void setNumber32At(Bytes& message, std::size_t place, AL::U32 number)
{
    Bytes bytes;
    append32(bytes, number);
    std::copy(bytes.begin(), bytes.end(), message.begin() + static_cast<std::ptrdiff_t>(place));
}

bool receive(int socket, Bytes& message, std::size_t length)
{
    message.resize(length);
    for (std::size_t received = 0; received < length;) {
        const ssize_t count = recv(socket, message.data() + received, length - received, 0);
        if (count == 0 || (count < 0 && errno != EINTR))
            return false;
        received += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

bool send(int socket, const Bytes& message)
{
    for (std::size_t sent = 0; sent < message.size();) {
        const ssize_t count = ::send(socket, message.data() + sent, message.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR)
            return false;
        sent += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

} // namespace VorelKestrel::Simulator::UsbIp
