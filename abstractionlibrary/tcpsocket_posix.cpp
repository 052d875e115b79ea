#include "abstractionlibrary/tcpsocket.h"

#include <arpa/inet.h>
#include <cassert>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace VorelKestrel { namespace AL {

class TCPSocketPrivate
{
public:
    /// Makes an unconnected socket; false if the system has none.
    bool open()
    {
        m_socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        if (m_socket < 0)
            m_socket = kClosed;
        return m_socket != kClosed;
    }

    void close()
    {
        ::close(m_socket);
        m_socket = kClosed;
    }

    static constexpr int kClosed = -1;
    int m_socket = kClosed;
};

namespace {

constexpr int kBacklog = 10; // connections that may wait for accept()

sockaddr_in ipv4Address(in_addr_t hostAddress, U16 port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = hostAddress;
    address.sin_port = htons(port);
    return address;
}

/// Owns an accepted connection until a socket object takes it.
class AcceptedConnection
{
public:
    explicit AcceptedConnection(int descriptor) : m_descriptor(descriptor) {}
    ~AcceptedConnection()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    AcceptedConnection(const AcceptedConnection&) = delete;
    AcceptedConnection& operator=(const AcceptedConnection&) = delete;

    bool failed() const { return m_descriptor < 0; }
    int release()
    {
        const int descriptor = m_descriptor;
        m_descriptor = TCPSocketPrivate::kClosed;
        return descriptor;
    }

private:
    int m_descriptor;
};

} // namespace

TCPSocket::TCPSocket() : m_data(new TCPSocketPrivate) {}

TCPSocket::~TCPSocket()
{
    assert(m_data);
    assert(m_data->m_socket == -1);
    delete m_data;
}

std::size_t TCPSocket::send(const void* data, std::size_t length)
{
    assert(m_data);
    // The text of an assertion is part of the interface; the formatter keeps away from it.
    // clang-format off
    assert(m_data->m_socket!=-1);
    // clang-format on
    return static_cast<std::size_t>(::send(m_data->m_socket, data, length, 0));
}

std::size_t TCPSocket::receive(void* data, std::size_t length)
{
    assert(m_data);
    assert(m_data->m_socket != -1);
    return static_cast<std::size_t>(::recv(m_data->m_socket, data, length, 0));
}

bool TCPSocket::sendU8(U8 value)
{
    return send(&value, sizeof(value)) == sizeof(value);
}

bool TCPSocket::sendU16(U16 value)
{
    const U16 bigEndian = htons(value);
    return send(&bigEndian, sizeof(bigEndian)) == sizeof(bigEndian);
}

bool TCPSocket::sendU32(U32 value)
{
    const U32 bigEndian = htonl(value);
    return send(&bigEndian, sizeof(bigEndian)) == sizeof(bigEndian);
}

// Deliberate: a short transfer is a failure of the integer operations and not a reason to call again.
bool TCPSocket::receiveU8(U8& value)
{
    return receive(&value, sizeof(value)) == sizeof(value);
}

bool TCPSocket::receiveU16(U16& value)
{
    if (receive(&value, sizeof(value)) != sizeof(value))
        return false;
    value = ntohs(value);
    return true;
}

bool TCPSocket::receiveU32(U32& value)
{
    if (receive(&value, sizeof(value)) != sizeof(value))
        return false;
    value = ntohl(value);
    return true;
}

void TCPSocket::close()
{
    assert(m_data);
    assert(m_data->m_socket != -1);
    m_data->close();
}

TCPClientSocket::TCPClientSocket() = default;

bool TCPClientSocket::connect(const char* ip, U16 port)
{
    assert(m_data);
    assert(m_data->m_socket == -1);
    // An address that does not parse becomes all ones here and fails in connect().
    const sockaddr_in address = ipv4Address(inet_addr(ip), port);
    if (!m_data->open())
        return false;
    if (::connect(m_data->m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        m_data->close();
        return false;
    }
    return true;
}

TCPServer::TCPServer() : m_data(new TCPSocketPrivate) {}

TCPServer::~TCPServer()
{
    assert(m_data);
    assert(m_data->m_socket == -1);
    delete m_data;
}

bool TCPServer::listen(U16 port)
{
    assert(m_data);
    assert(m_data->m_socket == -1);
    if (!m_data->open())
        return false;
    // Deliberate: no SO_REUSEADDR, so a port that still has connections of an earlier run is not taken over.
    const sockaddr_in address = ipv4Address(htonl(INADDR_ANY), port);
    if (::bind(m_data->m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(m_data->m_socket, kBacklog) != 0) {
        m_data->close();
        return false;
    }
    return true;
}

TCPSocket* TCPServer::accept()
{
    assert(m_data);
    assert(m_data->m_socket != -1);
    sockaddr_in peer = {};
    socklen_t peerLength = sizeof(peer);
    AcceptedConnection connection(::accept(m_data->m_socket, reinterpret_cast<sockaddr*>(&peer), &peerLength));
    if (connection.failed())
        return nullptr;
    auto* const socket = new TCPSocket;
    socket->m_data->m_socket = connection.release();
    return socket;
}

void TCPServer::close()
{
    assert(m_data);
    assert(m_data->m_socket != -1);
    m_data->close();
}

}} // namespace VorelKestrel::AL
