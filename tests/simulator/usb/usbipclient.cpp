#include "tests/simulator/usb/usbipclient.h"

#include <algorithm>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

using VorelKestrel::Bytes;
using VorelKestrel::AL::U8;
using VorelKestrel::Simulator::ControlRequest;

namespace {

constexpr std::size_t kDeviceLength = 0x138;

void add(Bytes& message, unsigned long number, int length)
{
    while (length-- > 0)
        message.push_back(static_cast<U8>(number >> static_cast<unsigned>(8 * length)));
}

unsigned at(const Bytes& message, std::size_t place)
{
    unsigned number = 0;
    for (std::size_t i = place; i < place + 4; ++i)
        number = number << 8U | message.at(i);
    return number;
}

void addSetup(Bytes& message, const ControlRequest& setup)
{
    message.insert(message.end(), {setup.type, setup.request});
    for (const unsigned number : {setup.value, setup.index, setup.length})
        message.insert(message.end(), {static_cast<U8>(number), static_cast<U8>(number >> 8U)});
}

} // namespace

UsbIpClient::UsbIpClient(unsigned short port) : m_socket(socket(AF_INET, SOCK_STREAM, 0))
{
    connectTo(port);
}

void UsbIpClient::connectTo(unsigned short port) const
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
}

void UsbIpClient::send(const Bytes& message) const
{
    EXPECT_TRUE(offer(message));
}

bool UsbIpClient::offer(const Bytes& message) const
{
    return ::send(m_socket.get(), message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size());
}

Bytes UsbIpClient::receive(std::size_t length) const
{
    Bytes message(length);
    const ssize_t count = length == 0 ? 0 : recv(m_socket.get(), message.data(), length, MSG_WAITALL);
    message.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return message;
}

Bytes UsbIpClient::deviceList() const
{
    send({0x01, 0x11, 0x80, 0x05, 0, 0, 0, 0});
    return receive(0xffff);
}

unsigned UsbIpClient::import(const std::string& busId) const
{
    const auto status = tryToImport(busId);
    EXPECT_TRUE(status) << "the server has hung up";
    return status.value_or(~0U);
}

std::optional<unsigned> UsbIpClient::tryToImport(const std::string& busId) const
{
    Bytes request{0x01, 0x11, 0x80, 0x03, 0, 0, 0, 0};
    request.insert(request.end(), busId.begin(), busId.end());
    request.resize(8 + 32);
    const Bytes reply = offer(request) ? receive(8) : Bytes();
    if (reply.size() < 8)
        return std::nullopt;
    const unsigned status = at(reply, 4);
    const std::size_t deviceLength = status == 0 ? kDeviceLength : 0;
    EXPECT_EQ(deviceLength, receive(deviceLength).size());
    return status;
}

Completion UsbIpClient::submit(unsigned endpoint, bool fromDevice, const ControlRequest& setup, const Bytes& data)
{
    Bytes request;
    const std::size_t length = fromDevice ? setup.length : data.size();
    for (const unsigned long number :
         {1UL, static_cast<unsigned long>(++m_sequence), 0x10002UL, fromDevice ? 1UL : 0UL,
          static_cast<unsigned long>(endpoint), 0UL, static_cast<unsigned long>(length), 0UL, 0xffffffffUL, 0UL})
        add(request, number, 4);
    addSetup(request, setup);
    request.insert(request.end(), data.begin(), data.end());
    send(request);

    const Bytes header = receive(48);
    if (header.size() != 48)
        return {-1, 0, {}};
    EXPECT_EQ(3U, at(header, 0));
    EXPECT_EQ(m_sequence, at(header, 4));
    Completion completion{static_cast<int>(at(header, 0x14)), at(header, 0x18), {}};
    if (fromDevice)
        completion.data = receive(completion.count);
    return completion;
}

int UsbIpClient::unlink()
{
    const unsigned submitted = m_sequence;
    Bytes request;
    for (const unsigned number : {2U, ++m_sequence, 0x10002U, 0U, 0U, submitted})
        add(request, number, 4);
    request.resize(48);
    send(request);
    const Bytes header = receive(48);
    EXPECT_EQ(4U, at(header, 0));
    EXPECT_EQ(m_sequence, at(header, 4));
    return static_cast<int>(at(header, 0x14));
}

Completion UsbIpClient::vendorIn(unsigned char request, unsigned value, unsigned index, std::size_t length)
{
    return submit(0, true,
                  {0xc1, request, static_cast<unsigned short>(value), static_cast<unsigned short>(index),
                   static_cast<unsigned short>(length)});
}

Completion UsbIpClient::vendorOut(unsigned char request, unsigned value, unsigned index, const Bytes& data)
{
    return submit(0, false,
                  {0x41, request, static_cast<unsigned short>(value), static_cast<unsigned short>(index),
                   static_cast<unsigned short>(data.size())},
                  data);
}

unsigned UsbIpClient::writeMessage(unsigned address, const Bytes& data)
{
    EXPECT_EQ(data.size(), vendorOut(7, 0, address, data).count);
    return status();
}

unsigned UsbIpClient::status()
{
    return vendorIn(3, 0, 0, 1).data.at(0);
}
