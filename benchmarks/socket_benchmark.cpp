// Integers over a loopback connection: the sockets compared with bare send and recv.

#include <arpa/inet.h>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <abstractionlibrary/tcpsocket.h>

#include "benchmarks/sidebyside.h"

using namespace VorelKestrel::AL;

namespace {

constexpr U32 kValue = 0x01020304;
constexpr U16 kFirstPort = 47000;
constexpr U16 kLastPort = 47100;

/// Both ends of a connection made with the library.
class OurConnection
{
public:
    OurConnection()
    {
        TCPServer server;
        U16 port = kFirstPort;
        while (!server.listen(port) && port < kLastPort)
            ++port;
        m_here.connect("127.0.0.1", port);
        m_there.reset(server.accept());
        server.close();
    }
    ~OurConnection()
    {
        m_here.close();
        m_there->close();
    }

    TCPSocket& here() { return m_here; }
    TCPSocket& there() { return *m_there; }

private:
    TCPClientSocket m_here;
    std::unique_ptr<TCPSocket> m_there;
};

/// Both ends of a connection made with the system's own calls.
class BareConnection
{
public:
    BareConnection()
    {
        const int server = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        bind(server, generic, length);
        listen(server, 1);
        getsockname(server, generic, &length);
        m_here = socket(AF_INET, SOCK_STREAM, 0);
        static_cast<void>(!connect(m_here, generic, length));
        m_there = accept(server, nullptr, nullptr);
        close(server);
    }
    ~BareConnection()
    {
        close(m_here);
        close(m_there);
    }

    int here() const { return m_here; }
    int there() const { return m_there; }

private:
    int m_here = -1;
    int m_there = -1;
};

void BM_U32(benchmark::State& state)
{
    OurConnection ours;
    const BareConnection bare;
    runSideBySide(
        state,
        [&] {
            U32 value = 0;
            ours.here().sendU32(kValue);
            ours.there().receiveU32(value);
            benchmark::DoNotOptimize(value);
        },
        [&] {
            U32 value = htonl(kValue);
            send(bare.here(), &value, sizeof(value), 0);
            recv(bare.there(), &value, sizeof(value), 0);
            benchmark::DoNotOptimize(ntohl(value));
        });
}

BENCHMARK(BM_U32)->Name("sockets/sendU32 and receiveU32/send and recv")->UseManualTime();

} // namespace

BENCHMARK_MAIN();
