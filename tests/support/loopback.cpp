#include "tests/support/loopback.h"

#include <cerrno>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>

#include "common/scopeddescriptor.h"

using VorelKestrel::ScopedDescriptor;
using VorelKestrel::AL::TCPServer;
using VorelKestrel::AL::U16;

U16 freePort()
{
    const ScopedDescriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET; // and port 0: the system picks one
    socklen_t length = sizeof(address);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::system_error(errno, std::generic_category(), "no free port");
    return ntohs(address.sin_port);
}

U16 listenAtAFreePort(TCPServer& server)
{
    constexpr int kTries = 100; // other programs take ports too
    for (int tries = 0; tries < kTries; ++tries) {
        const U16 port = freePort();
        if (server.listen(port))
            return port;
    }
    throw std::runtime_error("every port that was free was taken at once");
}
