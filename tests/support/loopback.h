#ifndef TESTS_SUPPORT_LOOPBACK_H
#define TESTS_SUPPORT_LOOPBACK_H

#include <abstractionlibrary/tcpsocket.h>

#include "common/scopeddescriptor.h"

namespace testsupport {

constexpr char kLoopback[] = "127.0.0.1";

/// A TCP port at which nobody listens, nor can while this lives: it is bound, and refuses who connects.
class UnheardPort
{
public:
    UnheardPort();
    VorelKestrel::AL::U16 number() const;

private:
    VorelKestrel::ScopedDescriptor m_socket;
};

/// Opens @p server at some free port and returns the port; throws if the machine seems to have none.
VorelKestrel::AL::U16 listenAtAFreePort(VorelKestrel::AL::TCPServer& server);

} // namespace testsupport

#endif
