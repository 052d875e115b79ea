// A server that adds two numbers, and ends on request.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <abstractionlibrary/tcpsocket.h>
#include <abstractionlibrary/thread.h>

using namespace VorelKestrel;

//! [server]
/// A socket has to be closed before it is destroyed.
struct CloseAndDelete
{
    void operator()(AL::TCPSocket* socket) const
    {
        socket->close();
        delete socket;
    }
};
using Connection = std::unique_ptr<AL::TCPSocket, CloseAndDelete>;

class AddingServer : public AL::Thread
{
public:
    ~AddingServer() override { join(); }

    bool listen(AL::U16 port) { return m_server.listen(port); }
    void run() override
    {
        bool isAsked = true;
        while (isAsked) {
            const Connection client(m_server.accept());
            isAsked = client != nullptr && answer(*client);
        }
        m_server.close();
    }

private:
    /// False if the client asks for nothing: a connection that is closed at once ends the server.
    static bool answer(AL::TCPSocket& client)
    {
        AL::U16 first = 0;
        AL::U16 second = 0;
        if (!client.receiveU16(first) || !client.receiveU16(second))
            return false;
        return client.sendU32(static_cast<AL::U32>(first) + second);
    }

    AL::TCPServer m_server;
};
//! [server]

namespace {

//! [client]
AL::U32 add(AL::U16 port, AL::U16 first, AL::U16 second)
{
    AL::TCPClientSocket socket;
    AL::U32 sum = 0;
    if (!socket.connect("127.0.0.1", port))
        return 0;
    if (!socket.sendU16(first) || !socket.sendU16(second) || !socket.receiveU32(sum))
        sum = 0;
    socket.close();
    return sum;
}

/// accept() has no timeout, and closing the server from another thread does not wake it. A connection does.
void stop(AL::U16 port)
{
    AL::TCPClientSocket socket;
    if (socket.connect("127.0.0.1", port))
        socket.close();
}
//! [client]

} // namespace

int main()
{
    AddingServer server;
    AL::U16 port = 20000; // the first one that is free
    while (!server.listen(port) && port < 30000)
        ++port;
    server.start();
    std::printf("%u\n", static_cast<unsigned>(add(port, 40, 2)));
    stop(port);
}
