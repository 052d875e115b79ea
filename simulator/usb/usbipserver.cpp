#include "simulator/usb/usbipserver.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <linux/usb/ch9.h>

#include "simulator/node/fronterror.h"
#include "simulator/usb/usbip.h"
#include "simulator/usb/usbipsession.h"

namespace VorelKestrel::Simulator {
namespace {

void switchOn(int socket, int level, int option)
{
    const int on = 1;
    setsockopt(socket, level, option, &on, sizeof(on));
}

/// Limits how long the other side may neither send nor receive; 0: no limit.
void limitSilence(int socket, std::chrono::milliseconds idle)
{
    timeval time = {};
    time.tv_sec = static_cast<time_t>(idle.count() / 1000);
    time.tv_usec = static_cast<suseconds_t>(idle.count() % 1000 * 1000);
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
}

/// A request must be complete in time, so that sending single bytes cannot keep a connection open.
bool receiveInTime(int socket, Bytes& request, std::size_t length)
{
    request.resize(length);
    return recv(socket, request.data(), length, MSG_WAITALL) == static_cast<ssize_t>(length);
}

constexpr auto kPauseInShortage = std::chrono::milliseconds(50);

/// A temporary lack of descriptors or memory; meanwhile the client waits in the queue.
bool isShortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/// The listener has been shut down.
bool isFinal(int error)
{
    return error == EINVAL || error == EBADF;
}

ScopedDescriptor listenOn(AL::U16 port)
{
    ScopedDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    switchOn(listener.get(), SOL_SOCKET, SO_REUSEADDR);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0)
        throw FrontError("cannot listen on port " + std::to_string(port) + ": " + std::strerror(errno));
    return listener;
}

Bytes managementReply(AL::U16 code, AL::U32 status)
{
    Bytes reply;
    UsbIp::append16(reply, UsbIp::kVersion);
    UsbIp::append16(reply, code);
    UsbIp::append32(reply, status);
    return reply;
}

void appendDevice(Bytes& reply, const UsbAdapter& adapter)
{
    const Bytes device = adapter.deviceDescriptor();
    const Bytes configuration = adapter.configurationDescriptor();
    UsbIp::appendText(reply, UsbIp::kDevicePath, UsbIp::kPathLength);
    UsbIp::appendText(reply, UsbIp::kBusId, UsbIp::kBusIdLength);
    UsbIp::append32(reply, UsbIp::kBusNumber);
    UsbIp::append32(reply, UsbIp::kDeviceNumber);
    UsbIp::append32(reply, USB_SPEED_FULL);
    for (const std::size_t low : {8, 10, 12}) // vendor, product, release
        reply.insert(reply.end(), {device.at(low + 1), device.at(low)});
    reply.insert(reply.end(), {device.at(4), device.at(5), device.at(6)}); // class, subclass, protocol
    reply.insert(reply.end(), {configuration.at(5), device.at(17), configuration.at(4)});
}

void appendInterface(Bytes& reply, const UsbAdapter& adapter)
{
    const Bytes configuration = adapter.configurationDescriptor();
    reply.insert(reply.end(), {configuration.at(14), configuration.at(15), configuration.at(16), 0});
}

Bytes deviceList(const UsbAdapter& adapter)
{
    Bytes reply = managementReply(UsbIp::kReplyDeviceList, UsbIp::kDone);
    UsbIp::append32(reply, 1);
    appendDevice(reply, adapter);
    appendInterface(reply, adapter);
    return reply;
}

} // namespace

UsbIpServer::UsbIpServer(UsbAdapter& device, AL::U16 port, const Limits& limits)
    : m_device(device), m_limits(limits), m_listener(listenOn(port), [this](int listener) { accept(listener); })
{}

AL::U16 UsbIpServer::port() const
{
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    getsockname(m_listener.socket(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

void UsbIpServer::accept(int listener)
{
    for (;;) {
        ScopedDescriptor connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        const int error = connection.get() < 0 ? errno : 0;
        if (isFinal(error))
            return;
        m_connections.remove_if([](const ServingThread& thread) { return thread.ended(); });
        if (isShortage(error))
            std::this_thread::sleep_for(kPauseInShortage);
        if (connection.get() < 0 || m_connections.size() >= m_limits.connections)
            continue;
        switchOn(connection.get(), IPPROTO_TCP, TCP_NODELAY); // send answers at once
        limitSilence(connection.get(), m_limits.idle);
        try {
            m_connections.emplace_back(std::move(connection), [this](int socket) { serve(socket); });
        } catch (const std::system_error&) { // no thread available: this client is disconnected
        }
    }
}

void UsbIpServer::serve(int socket)
{
    Bytes request;
    if (!receiveInTime(socket, request, UsbIp::kManagementLength))
        return;
    const AL::U16 code = UsbIp::number16At(request, 2);
    if (UsbIp::number16At(request, 0) != UsbIp::kVersion)
        return;
    if (code == UsbIp::kRequestDeviceList)
        UsbIp::send(socket, deviceList(m_device));
    if (code == UsbIp::kRequestImport)
        serveImport(socket);
}

void UsbIpServer::serveImport(int socket)
{
    Bytes busId;
    if (!receiveInTime(socket, busId, UsbIp::kBusIdLength))
        return;
    Bytes ours;
    UsbIp::appendText(ours, UsbIp::kBusId, UsbIp::kBusIdLength);
    if (busId != ours) {
        UsbIp::send(socket, managementReply(UsbIp::kReplyImport, UsbIp::kNoDevice));
        return;
    }
    const std::unique_lock<std::mutex> imported(m_imported, std::try_to_lock);
    if (!imported.owns_lock()) {
        UsbIp::send(socket, managementReply(UsbIp::kReplyImport, UsbIp::kBusy));
        return;
    }
    limitSilence(socket, std::chrono::milliseconds(0));
    Bytes reply = managementReply(UsbIp::kReplyImport, UsbIp::kDone);
    appendDevice(reply, m_device);
    if (UsbIp::send(socket, reply))
        serveTransfers(socket, m_device);
}

} // namespace VorelKestrel::Simulator
