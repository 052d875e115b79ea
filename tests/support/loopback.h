#ifndef TESTS_SUPPORT_LOOPBACK_H
#define TESTS_SUPPORT_LOOPBACK_H

#include <abstractionlibrary/tcpsocket.h>

constexpr char kLoopback[] = "127.0.0.1";

/// A TCP port at which nobody listened a moment ago; another program may be quicker to take it.
VorelKestrel::AL::U16 freePort();

/// Opens @p server at some free port and returns the port; throws if the machine seems to have none.
VorelKestrel::AL::U16 listenAtAFreePort(VorelKestrel::AL::TCPServer& server);

#endif
