#include "tests/support/loopback.h"

#include <cerrno>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>

namespace testsupport {

using VorelKestrel::AL::TCPServer;
using VorelKestrel::AL::U16;

UnheardPort::UnheardPort() : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET; // and port 0: the system picks one
    if (::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        throw std::system_error(errno, std::generic_category(), "no free port");
}

U16 UnheardPort::number() const
{
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    if (::getsockname(m_socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::system_error(errno, std::generic_category(), "a port without a number");
    return ntohs(address.sin_port);
}

U16 listenAtAFreePort(TCPServer& server)
{
    constexpr int kTries = 100; // other programs also take ports
    for (int tries = 0; tries < kTries; ++tries) {
        const U16 port = UnheardPort().number(); // released here for the server
        if (server.listen(port))
            return port;
    }
    throw std::runtime_error("every port that was free was taken at once");
}

} // namespace testsupport
