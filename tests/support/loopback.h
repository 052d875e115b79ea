#ifndef TESTS_SUPPORT_LOOPBACK_H
#define TESTS_SUPPORT_LOOPBACK_H

#include <abstractionlibrary/tcpsocket.h>

#include "common/scopeddescriptor.h"

namespace testsupport {

constexpr char kLoopback[] = "127.0.0.1";

/// A TCP port that refuses connections, and that no other program can use during the lifetime of this object: it is
/// bound, but nothing listens.
class UnheardPort
{
public:
    UnheardPort();
    VorelKestrel::AL::U16 number() const;

private:
    VorelKestrel::ScopedDescriptor m_socket;
};

/// Opens @p server at a free port and returns the port; throws if there seems to be none.
VorelKestrel::AL::U16 listenAtAFreePort(VorelKestrel::AL::TCPServer& server);

} // namespace testsupport

#endif
