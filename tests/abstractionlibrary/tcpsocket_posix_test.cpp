#include <abstractionlibrary/tcpsocket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <ostream>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/assertionfailed.h"
#include "tests/support/fakesockets.h"
#include "tests/support/lastwords.h"
#include "tests/support/loopback.h"
#include "tests/support/objectallocations.h"
#include "tests/support/observedthread.h"
#include "tests/support/soiledstack.h"
#include "tests/support/systemcalls.h"

using namespace testsupport;
using VorelKestrel::AL::TCPClientSocket;
using VorelKestrel::AL::TCPServer;
using VorelKestrel::AL::TCPSocket;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

namespace {

using Bytes = std::vector<U8>;

constexpr std::size_t kError = std::numeric_limits<std::size_t>::max();
constexpr int kFakeDescriptor = 1 << 20; // far above what a process really opens

struct CloseAndDelete
{
    void operator()(TCPSocket* socket) const
    {
        socket->close();
        delete socket;
    }
};
using AcceptedSocket = std::unique_ptr<TCPSocket, CloseAndDelete>;

/// What @p socket receives before @p count bytes are there or the peer has closed.
Bytes receiveBytes(TCPSocket& socket, std::size_t count)
{
    Bytes bytes(count);
    std::size_t received = 0;
    while (received < count) {
        const std::size_t now = socket.receive(bytes.data() + received, count - received);
        if (now == 0 || now == kError)
            break;
        received += now;
    }
    bytes.resize(received);
    return bytes;
}

/// A connection over the loopback: a client and the socket that the server got for it.
class TCPConnectionTest : public ::testing::Test
{
protected:
    TCPConnectionTest()
    {
        const U16 port = listenAtAFreePort(m_server);
        EXPECT_TRUE(m_client.connect(kLoopback, port));
        m_peer.reset(m_server.accept());
        m_server.close();
    }
    ~TCPConnectionTest() override
    {
        if (m_clientIsOpen)
            m_client.close();
    }

    void closeClient()
    {
        m_client.close();
        m_clientIsOpen = false;
    }

    TCPServer m_server;
    TCPClientSocket m_client;
    AcceptedSocket m_peer;
    bool m_clientIsOpen = true;
};

TEST_F(TCPConnectionTest, SendU16PutsTheHigherByteFirstOnTheWire)
{
    EXPECT_TRUE(m_client.sendU16(0x1234));
    EXPECT_EQ((Bytes{0x12, 0x34}), receiveBytes(*m_peer, 2));
}

TEST_F(TCPConnectionTest, SendU32PutsTheHighestByteFirstOnTheWire)
{
    EXPECT_TRUE(m_client.sendU32(0x12345678));
    EXPECT_EQ((Bytes{0x12, 0x34, 0x56, 0x78}), receiveBytes(*m_peer, 4));
}

TEST_F(TCPConnectionTest, SendU8PutsTheByteOnTheWire)
{
    EXPECT_TRUE(m_client.sendU8(0xa5));
    EXPECT_EQ((Bytes{0xa5}), receiveBytes(*m_peer, 1));
}

TEST_F(TCPConnectionTest, ReceiveU16TakesTheHigherByteFirst)
{
    const Bytes wire = {0x12, 0x34};
    m_client.send(wire.data(), wire.size());
    U16 value = 0;

    EXPECT_TRUE(m_peer->receiveU16(value));
    EXPECT_EQ(0x1234, value);
}

TEST_F(TCPConnectionTest, ReceiveU32TakesTheHighestByteFirst)
{
    const Bytes wire = {0x12, 0x34, 0x56, 0x78};
    m_client.send(wire.data(), wire.size());
    U32 value = 0;

    EXPECT_TRUE(m_peer->receiveU32(value));
    EXPECT_EQ(0x12345678U, value);
}

TEST_F(TCPConnectionTest, ReceiveU8TakesTheByte)
{
    const U8 wire = 0xa5;
    m_client.send(&wire, 1);
    U8 value = 0;

    EXPECT_TRUE(m_peer->receiveU8(value));
    EXPECT_EQ(0xa5, value);
}

TEST_F(TCPConnectionTest, SendReportsHowManyBytesItSentAndReceiveHowManyCame)
{
    const Bytes sent = {1, 2, 3, 4, 5};
    EXPECT_EQ(5U, m_client.send(sent.data(), sent.size()));

    Bytes received(10);
    EXPECT_EQ(5U, m_peer->receive(received.data(), received.size()));
    received.resize(5);
    EXPECT_EQ(sent, received);
}

TEST_F(TCPConnectionTest, AConnectionCarriesBytesBothWays)
{
    EXPECT_TRUE(m_peer->sendU32(0xfffefdfc));
    U32 value = 0;
    EXPECT_TRUE(m_client.receiveU32(value));
    EXPECT_EQ(0xfffefdfcU, value);
}

TEST_F(TCPConnectionTest, ReceiveBlocksUntilBytesCome)
{
    U8 value = 0;
    ObservedThread receiver([&] { m_peer->receiveU8(value); });

    receiver.waitUntilItSleeps();
    EXPECT_FALSE(receiver.hasEnded());

    m_client.sendU8(7);
    receiver.join();
    EXPECT_EQ(7, value);
}

TEST_F(TCPConnectionTest, OneThreadMaySendWhileAnotherReceivesOnTheSameSocket)
{
    constexpr U32 kCount = 1000;
    constexpr std::size_t kBytes = kCount * sizeof(U32);
    const auto sendAll = [](TCPSocket& socket) {
        for (U32 number = 0; number < kCount; ++number)
            socket.sendU32(number);
    };
    ObservedThread clientSender([&] { sendAll(m_client); });
    ObservedThread peerSender([&] { sendAll(*m_peer); });
    Bytes atClient;
    ObservedThread clientReceiver([&] { atClient = receiveBytes(m_client, kBytes); });
    const Bytes atPeer = receiveBytes(*m_peer, kBytes);
    clientSender.join();
    peerSender.join();
    clientReceiver.join();

    EXPECT_EQ(kBytes, atClient.size());
    EXPECT_EQ(atPeer, atClient);
    EXPECT_EQ((Bytes{0, 0, 3, 0xe7}), Bytes(atClient.end() - 4, atClient.end()));
}

TEST_F(TCPConnectionTest, ReceiveAfterThePeerClosedReturnsZero)
{
    closeClient();
    U8 byte = 0;

    EXPECT_EQ(0U, m_peer->receive(&byte, 1));
}

TEST_F(TCPConnectionTest, TheIntegersAreNotReceivedAfterThePeerClosed)
{
    closeClient();
    U8 byte = 0;
    U16 word = 0;
    U32 number = 0;

    EXPECT_FALSE(m_peer->receiveU8(byte));
    EXPECT_FALSE(m_peer->receiveU16(word));
    EXPECT_FALSE(m_peer->receiveU32(number));
}

TEST_F(TCPConnectionTest, ReceiveU32WhenThePeerSentOnlyTwoBytesAndClosedReturnsFalseAndLosesTheBytes)
{
    m_client.sendU16(0x1234);
    closeClient();
    U32 value = 0;

    EXPECT_FALSE(m_peer->receiveU32(value));
    Bytes raw(sizeof(value));
    std::memcpy(raw.data(), &value, sizeof(value));
    EXPECT_EQ((Bytes{0x12, 0x34, 0, 0}), raw); // as they came, not converted
    EXPECT_EQ(0U, m_peer->receive(raw.data(), raw.size()));
}

TEST_F(TCPConnectionTest, ReceiveU16OfASingleByteReturnsFalseAndDoesNotCallAgain)
{
    m_client.sendU8(0x12);
    FakeSockets sockets;
    U16 value = 0;

    EXPECT_FALSE(m_peer->receiveU16(value));
    EXPECT_EQ("recv 2", sockets.conversation());
}

TEST_F(TCPConnectionTest, SendToAPeerThatHasClosedReturnsTheErrorWhenTheSignalIsIgnored)
{
    std::signal(SIGPIPE, SIG_IGN);
    m_peer.reset();
    while (m_client.send("", 1) != kError) {
        // The first ones may still be taken.
    }
    EXPECT_FALSE(m_client.sendU8(1));
    EXPECT_EQ(EPIPE, errno);
    std::signal(SIGPIPE, SIG_DFL);
}

TEST_F(TCPConnectionTest, SendToAPeerThatHasClosedRaisesTheBrokenPipeSignal)
{
    m_peer.reset();
    EXPECT_EXIT(
        {
            std::signal(SIGPIPE, SIG_DFL);
            while (m_client.send("", 1) != kError) {}
        },
        ::testing::KilledBySignal(SIGPIPE), "");
}

// --- one system call per operation ---

/// A client that is open without a connection: whatever it sends and receives, the fake answers.
class TCPTransferTest : public ::testing::Test
{
protected:
    TCPTransferTest()
    {
        FakeSockets sockets;
        sockets.answers("socket", kFakeDescriptor).answers("connect", 0);
        EXPECT_TRUE(m_client.connect(kLoopback, 80));
    }
    ~TCPTransferTest() override { m_client.close(); }

    TCPClientSocket m_client;
};

template<typename Integer, bool (TCPSocket::*receive)(Integer&)>
void expectToReceiveStraightInto(TCPSocket& socket)
{
    FakeSockets sockets;
    sockets.fails("recv", EIO);
    Integer value = 0;

    EXPECT_FALSE((socket.*receive)(value));
    EXPECT_EQ(&value, sockets.newestBuffer());
}

TEST_F(TCPTransferTest, TheIntegersAreReceivedStraightIntoTheCallersVariable)
{
    expectToReceiveStraightInto<U8, &TCPSocket::receiveU8>(m_client);
    expectToReceiveStraightInto<U16, &TCPSocket::receiveU16>(m_client);
    expectToReceiveStraightInto<U32, &TCPSocket::receiveU32>(m_client);
}

struct Transfer
{
    const char* name;
    const char* call; // the one system call
    long complete;    // what it returns when all went well
    bool (*transfer)(TCPSocket& socket);
    const char* conversation;
};

void PrintTo(const Transfer& transfer, std::ostream* out)
{
    *out << transfer.name;
}

template<typename Integer, bool (TCPSocket::*receive)(Integer&)>
bool received(TCPSocket& socket)
{
    Integer value = 0;
    return (socket.*receive)(value);
}

const Transfer kTransfers[] = {
    {"sendU8", "send", 1, [](TCPSocket& socket) { return socket.sendU8(1); }, "send 1"},
    {"sendU16", "send", 2, [](TCPSocket& socket) { return socket.sendU16(1); }, "send 2"},
    {"sendU32", "send", 4, [](TCPSocket& socket) { return socket.sendU32(1); }, "send 4"},
    {"receiveU8", "recv", 1, received<U8, &TCPSocket::receiveU8>, "recv 1"},
    {"receiveU16", "recv", 2, received<U16, &TCPSocket::receiveU16>, "recv 2"},
    {"receiveU32", "recv", 4, received<U32, &TCPSocket::receiveU32>, "recv 4"},
};

class TCPIntegerTest : public TCPTransferTest, public ::testing::WithParamInterface<Transfer>
{};

TEST_P(TCPIntegerTest, IsTransferredByOneCallWithoutFlags)
{
    FakeSockets sockets;
    sockets.answers(GetParam().call, GetParam().complete);

    EXPECT_TRUE(GetParam().transfer(m_client));
    EXPECT_EQ(GetParam().conversation, sockets.conversation());
}

TEST_P(TCPIntegerTest, IsNotTransferredByAnythingLess)
{
    for (long result = -1; result < GetParam().complete; ++result) {
        FakeSockets sockets;
        sockets.answers(GetParam().call, result, EAGAIN);

        EXPECT_FALSE(GetParam().transfer(m_client)) << "result " << result;
        EXPECT_EQ(GetParam().conversation, sockets.conversation());
        EXPECT_EQ(EAGAIN, errno);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKind, TCPIntegerTest, ::testing::ValuesIn(kTransfers),
                         [](const auto& test) { return test.param.name; });

TEST_F(TCPTransferTest, SendReturnsTheResultOfTheCallUnchanged)
{
    for (const long result : {-1L, 0L, 1L, 3L}) {
        FakeSockets sockets;
        sockets.answers("send", result, EINTR);

        EXPECT_EQ(static_cast<std::size_t>(result), m_client.send("abc", 3));
        EXPECT_EQ("send 3", sockets.conversation());
        EXPECT_EQ(EINTR, errno);
    }
}

TEST_F(TCPTransferTest, ReceiveReturnsTheResultOfTheCallUnchanged)
{
    for (const long result : {-1L, 0L, 1L, 3L}) {
        FakeSockets sockets;
        sockets.answers("recv", result, EINTR);
        Bytes data(3);

        EXPECT_EQ(static_cast<std::size_t>(result), m_client.receive(data.data(), data.size()));
        EXPECT_EQ("recv 3", sockets.conversation());
        EXPECT_EQ(EINTR, errno);
    }
}

// --- the client ---

TEST(TCPClientSocketTest, ConnectMakesATcpSocketAndConnectsItToTheAddressAndPort)
{
    FakeSockets sockets;
    sockets.answers("connect", 0);
    TCPClientSocket client;

    EXPECT_TRUE(client.connect("192.0.2.17", 0x1234));
    EXPECT_EQ("socket tcp; connect 192.0.2.17:4660", sockets.conversation());
    EXPECT_TRUE(isOpenDescriptor(sockets.newestDescriptor()));

    client.close();
    EXPECT_FALSE(isOpenDescriptor(sockets.newestDescriptor()));
}

TEST(TCPClientSocketTest, ConnectWithATextThatIsNoAddressTriesTheAllOnesAddress)
{
    FakeSockets sockets;
    sockets.fails("connect", ENETUNREACH);
    TCPClientSocket client;

    EXPECT_FALSE(client.connect("no address", 80));
    EXPECT_EQ("socket tcp; connect 255.255.255.255:80", sockets.conversation());
}

TEST(TCPClientSocketTest, ConnectWithoutAFreeDescriptorReturnsFalseAndLeavesTheObjectClosed)
{
    for (const long result : {-1L, -5L}) {
        FakeSockets sockets;
        sockets.answers("socket", result, EMFILE);
        TCPClientSocket client; // its destructor would stop the process if it were open

        EXPECT_FALSE(client.connect(kLoopback, 80));
        EXPECT_EQ(EMFILE, errno);
        EXPECT_FALSE(client.connect(kLoopback, 80)); // allowed again
        EXPECT_EQ("socket tcp; socket tcp", sockets.conversation());
    }
}

TEST(TCPClientSocketTest, AFailedConnectClosesTheDescriptorAndLeavesErrno)
{
    FakeSockets sockets;
    sockets.fails("connect", ETIMEDOUT);
    TCPClientSocket client;

    EXPECT_FALSE(client.connect(kLoopback, 80));
    EXPECT_EQ(ETIMEDOUT, errno);
    ASSERT_NE(-1, sockets.newestDescriptor());
    EXPECT_FALSE(isOpenDescriptor(sockets.newestDescriptor()));
}

TEST(TCPClientSocketTest, ConnectToAPortWhereNothingListensReturnsFalseAndASecondConnectIsAllowed)
{
    const UnheardPort port;
    TCPServer server;
    TCPClientSocket client;
    EXPECT_FALSE(client.connect(kLoopback, port.number()));
    EXPECT_EQ(ECONNREFUSED, errno);

    EXPECT_TRUE(client.connect(kLoopback, listenAtAFreePort(server)));
    client.close();
    server.close();
}

TEST(TCPClientSocketTest, AClosedClientMayConnectAgain)
{
    TCPServer server;
    const U16 port = listenAtAFreePort(server);
    TCPClientSocket client;
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(client.connect(kLoopback, port));
        client.close();
    }
    server.close();
}

// --- the server ---

TEST(TCPServerTest, ListenBindsToEveryInterfaceWithoutASocketOptionAndQueuesTen)
{
    FakeSockets sockets;
    sockets.answers("bind", 0).answers("listen", 0);
    TCPServer server;

    EXPECT_TRUE(server.listen(0x1234));
    EXPECT_EQ("socket tcp; bind 0.0.0.0:4660; listen 10", sockets.conversation());

    server.close();
    EXPECT_FALSE(isOpenDescriptor(sockets.newestDescriptor()));
}

TEST(TCPServerTest, ListenWithoutAFreeDescriptorReturnsFalseAndLeavesTheServerClosed)
{
    for (const long result : {-1L, -5L}) {
        FakeSockets sockets;
        sockets.answers("socket", result, EMFILE);
        TCPServer server; // its destructor would stop the process if it were open

        EXPECT_FALSE(server.listen(80));
        EXPECT_EQ(EMFILE, errno);
        EXPECT_FALSE(server.listen(80)); // allowed again
        EXPECT_EQ("socket tcp; socket tcp", sockets.conversation());
    }
}

TEST(TCPServerTest, AFailedBindOrListenClosesTheDescriptorAndLeavesErrno)
{
    for (const char* const call : {"bind", "listen"}) {
        FakeSockets sockets;
        sockets.fails(call, EADDRINUSE);
        TCPServer server;

        EXPECT_FALSE(server.listen(0)) << call;
        EXPECT_EQ(EADDRINUSE, errno) << call;
        ASSERT_NE(-1, sockets.newestDescriptor());
        EXPECT_FALSE(isOpenDescriptor(sockets.newestDescriptor())) << call;
    }
}

TEST(TCPServerTest, AFailedBindIsNotFollowedByAListen)
{
    FakeSockets sockets;
    sockets.fails("bind", EACCES);
    TCPServer server;
    server.listen(80);

    EXPECT_EQ("socket tcp; bind 0.0.0.0:80", sockets.conversation());
}

TEST(TCPServerTest, ListenOnAPortThatIsAlreadyInUseReturnsFalseAndLeavesTheServerClosed)
{
    TCPServer first;
    const U16 port = listenAtAFreePort(first);
    TCPServer second;
    EXPECT_FALSE(second.listen(port));
    EXPECT_EQ(EADDRINUSE, errno);
    first.close();

    listenAtAFreePort(second); // allowed again
    second.close();
}

TEST(TCPServerTest, APortThatStillHasConnectionsOfAnEarlierRunIsNotTakenOver)
{
    TCPServer server;
    const U16 port = listenAtAFreePort(server);
    TCPClientSocket client;
    client.connect(kLoopback, port);
    const AcceptedSocket accepted(server.accept());
    server.close();

    EXPECT_FALSE(server.listen(port));
    EXPECT_EQ(EADDRINUSE, errno);
    client.close();
}

TEST(TCPServerTest, SixClientsConnectingBeforeAnyAcceptAreAllQueuedAndEachAcceptReturnsADistinctOpenSocket)
{
    TCPServer server;
    const U16 port = listenAtAFreePort(server);
    std::array<TCPClientSocket, 6> clients;
    U8 number = 0;
    for (TCPClientSocket& client : clients) {
        ASSERT_TRUE(client.connect(kLoopback, port));
        EXPECT_TRUE(client.sendU8(number++));
    }

    std::vector<AcceptedSocket> accepted;
    std::set<int> numbers;
    for (std::size_t count = 0; count < clients.size(); ++count) {
        accepted.emplace_back(server.accept());
        U8 received = 0;
        EXPECT_TRUE(accepted.back()->receiveU8(received));
        numbers.insert(received);
    }
    EXPECT_EQ((std::set<int>{0, 1, 2, 3, 4, 5}), numbers);

    for (TCPClientSocket& client : clients)
        client.close();
    server.close();
}

TEST(TCPServerTest, AcceptBlocksUntilAConnectionArrives)
{
    TCPServer server;
    const U16 port = listenAtAFreePort(server);
    AcceptedSocket accepted;
    ObservedThread acceptor([&] { accepted.reset(server.accept()); });

    acceptor.waitUntilItSleeps();
    EXPECT_FALSE(acceptor.hasEnded());

    TCPClientSocket client;
    EXPECT_TRUE(client.connect(kLoopback, port));
    acceptor.join();
    EXPECT_NE(nullptr, accepted);
    client.close();
    server.close();
}

TEST(TCPServerTest, AFailedAcceptReturnsNullWithoutTryingAgainAndTheServerStaysOpen)
{
    TCPServer server;
    const U16 port = listenAtAFreePort(server);
    for (const long result : {-1L, -5L}) {
        FakeSockets sockets;
        sockets.answers("accept", result, EINTR);
        EXPECT_EQ(nullptr, server.accept());
        EXPECT_EQ(EINTR, errno);
        EXPECT_EQ("accept", sockets.conversation());
    }

    TCPClientSocket client;
    EXPECT_TRUE(client.connect(kLoopback, port));
    EXPECT_NE(nullptr, AcceptedSocket(server.accept()));
    client.close();
    server.close();
}

TEST(TCPServerTest, ClosingTheServerLeavesAcceptedConnectionsOpen)
{
    TCPServer server;
    TCPClientSocket client;
    client.connect(kLoopback, listenAtAFreePort(server));
    const AcceptedSocket accepted(server.accept());
    server.close();

    U8 value = 0;
    EXPECT_TRUE(client.sendU8(9));
    EXPECT_TRUE(accepted->receiveU8(value));
    EXPECT_EQ(9, value);
    client.close();
}

TEST(TCPServerTest, AcceptClosesTheConnectionWhenNoMemoryIsLeftForTheSocket)
{
    for (const int failing : {1, 2}) { // the socket object, and its private record
        TCPServer server;
        TCPClientSocket client;
        client.connect(kLoopback, listenAtAFreePort(server));
        {
            const ObjectAllocations allocations(failing);
            EXPECT_THROW(server.accept(), std::bad_alloc) << "at allocation " << failing;
            EXPECT_EQ(0, allocations.outstanding());
        }

        U8 byte = 0;
        EXPECT_EQ(0U, client.receive(&byte, 1)); // the peer has closed
        client.close();
        server.close();
    }
}

// --- what reaches the system ---

/// Counts during its lifetime how often each descriptor is closed; the system still closes it.
class ClosedDescriptors : public SystemCallHandler
{
public:
    ClosedDescriptors() { install(this); }
    ~ClosedDescriptors() override { install(nullptr); }
    ClosedDescriptors(const ClosedDescriptors&) = delete;
    ClosedDescriptors& operator=(const ClosedDescriptors&) = delete;

    int times(int descriptor) const { return m_times.count(descriptor) == 0 ? 0 : m_times.at(descriptor); }

    bool answersFor(int /*descriptor*/) override { return true; }
    ssize_t read(int descriptor, void* data, std::size_t count) override
    {
        return realcalls::read(descriptor, data, count);
    }
    ssize_t write(int descriptor, const void* data, std::size_t count) override
    {
        return realcalls::write(descriptor, data, count);
    }
    int close(int descriptor) override
    {
        ++m_times[descriptor];
        return realcalls::close(descriptor);
    }

private:
    std::map<int, int> m_times;
};

TEST(TCPSocketCallsTest, ADescriptorIsClosedOnceWhateverClosesIt)
{
    FakeSockets sockets;
    TCPServer server;
    const U16 port = listenAtAFreePort(server);
    const int listening = sockets.newestDescriptor();
    TCPClientSocket client;
    client.connect(kLoopback, port);
    const int connected = sockets.newestDescriptor();
    const ClosedDescriptors closed;
    {
        const ObjectAllocations allocations(1);
        EXPECT_THROW(server.accept(), std::bad_alloc);
    }
    const int accepted = sockets.newestDescriptor();
    client.close();
    server.close();

    EXPECT_EQ(1, closed.times(accepted));
    EXPECT_EQ(1, closed.times(connected));
    EXPECT_EQ(1, closed.times(listening));
}

TEST(TCPSocketCallsTest, EveryResultButZeroIsARefusal)
{
    for (const char* const refusing : {"connect", "bind", "listen"}) {
        FakeSockets sockets;
        sockets.answers("socket", kFakeDescriptor).answers("connect", 0).answers("bind", 0).answers("listen", 0);
        sockets.answers(refusing, 1);
        TCPClientSocket client;
        TCPServer server;
        const bool connected = client.connect(kLoopback, 80);
        const bool listening = server.listen(80);

        EXPECT_EQ(std::string("connect") == refusing, !connected) << refusing;
        EXPECT_EQ(std::string("connect") != refusing, !listening) << refusing;
        if (connected)
            client.close();
        if (listening)
            server.close();
    }
}

TEST(TCPSocketCallsTest, AnAddressHasNothingInItsPadding)
{
    FakeSockets sockets;
    sockets.answers("socket", kFakeDescriptor).fails("connect", ECONNREFUSED).fails("bind", EADDRINUSE);
    soilStack();
    TCPClientSocket().connect(kLoopback, 80);
    soilStack();
    TCPServer().listen(80);

    EXPECT_EQ("socket tcp; connect 127.0.0.1:80; socket tcp; bind 0.0.0.0:80", sockets.conversation());
}

// --- descriptor 0, which a process without standard input gets first ---

class DescriptorZeroTest : public ::testing::Test
{
protected:
    ~DescriptorZeroTest() override
    {
        dup2(m_standardInput, STDIN_FILENO);
        ::close(m_standardInput);
    }

    /// The next descriptor is 0.
    static void freeZero() { ::close(STDIN_FILENO); }

    const int m_standardInput = dup(STDIN_FILENO);
    FakeSockets m_sockets;
};

TEST_F(DescriptorZeroTest, IsGoodForAClient)
{
    TCPServer other;
    const U16 port = listenAtAFreePort(other);
    freeZero();
    TCPClientSocket client;

    EXPECT_TRUE(client.connect(kLoopback, port));
    EXPECT_EQ(0, m_sockets.newestDescriptor());
    client.close();
    EXPECT_FALSE(isOpenDescriptor(0));
    other.close();
}

TEST_F(DescriptorZeroTest, IsGoodForAServer)
{
    freeZero();
    TCPServer server;
    listenAtAFreePort(server);

    EXPECT_EQ(0, m_sockets.newestDescriptor());
    server.close();
    EXPECT_FALSE(isOpenDescriptor(0));
}

TEST_F(DescriptorZeroTest, IsGoodForAnAcceptedConnectionAndClosedWhenThereIsNoMemoryForIt)
{
    TCPServer server;
    TCPClientSocket client;
    const U16 port = listenAtAFreePort(server);
    EXPECT_TRUE(client.connect(kLoopback, port));
    freeZero();
    {
        const ObjectAllocations allocations(1);
        EXPECT_THROW(server.accept(), std::bad_alloc);
        EXPECT_EQ(0, m_sockets.newestDescriptor());
        EXPECT_FALSE(isOpenDescriptor(0));
    }
    client.close();
    EXPECT_TRUE(client.connect(kLoopback, port));
    const int clients = m_sockets.newestDescriptor();
    client.close();
    const AcceptedSocket accepted(server.accept()); // of a client that has left again
    EXPECT_NE(nullptr, accepted);
    EXPECT_EQ(clients, m_sockets.newestDescriptor());
    EXPECT_EQ(0, clients);
    server.close();
}

// --- preconditions ---

struct Misuse
{
    const char* name;
    void (*misuse)();
    const char* assertion;
};

void PrintTo(const Misuse& misuse, std::ostream* out)
{
    *out << misuse.name;
}

/// Does something to a socket that was never opened.
template<typename Object, typename Operation>
void withClosed(Operation operation)
{
    Object object;
    operation(object);
}

/// Does something to an open client, or to nothing but its destructor.
template<typename Operation>
void withOpenClient(Operation operation)
{
    FakeSockets sockets;
    sockets.answers("socket", kFakeDescriptor).answers("connect", 0);
    TCPClientSocket client;
    client.connect(kLoopback, 80);
    sockets.echo();
    operation(client);
}

template<typename Operation>
void withOpenServer(Operation operation)
{
    FakeSockets sockets;
    sockets.answers("socket", kFakeDescriptor).answers("bind", 0).answers("listen", 0);
    TCPServer server;
    server.listen(80);
    sockets.echo();
    operation(server);
}

template<typename Integer, bool (TCPSocket::*receive)(Integer&)>
void receiveFromClosed()
{
    withClosed<TCPSocket>(received<Integer, receive>);
}

constexpr char kSendNeedsOpen[] = "m_data->m_socket!=-1";
constexpr char kNeedsOpen[] = "m_data->m_socket != -1";
constexpr char kNeedsClosed[] = "m_data->m_socket == -1";

const Misuse kMisuses[] = {
    {"ClosedSocket_send", [] { withClosed<TCPSocket>([](auto& socket) { socket.send("", 1); }); }, kSendNeedsOpen},
    {"ClosedSocket_sendU8", [] { withClosed<TCPSocket>([](auto& socket) { socket.sendU8(1); }); }, kSendNeedsOpen},
    {"ClosedSocket_sendU16", [] { withClosed<TCPSocket>([](auto& socket) { socket.sendU16(1); }); }, kSendNeedsOpen},
    {"ClosedSocket_sendU32", [] { withClosed<TCPSocket>([](auto& socket) { socket.sendU32(1); }); }, kSendNeedsOpen},
    {"ClosedSocket_receive", [] { withClosed<TCPSocket>([](auto& socket) { socket.receive(&socket, 0); }); },
     kNeedsOpen},
    {"ClosedSocket_receiveU8", receiveFromClosed<U8, &TCPSocket::receiveU8>, kNeedsOpen},
    {"ClosedSocket_receiveU16", receiveFromClosed<U16, &TCPSocket::receiveU16>, kNeedsOpen},
    {"ClosedSocket_receiveU32", receiveFromClosed<U32, &TCPSocket::receiveU32>, kNeedsOpen},
    {"ClosedSocket_close", [] { withClosed<TCPSocket>([](auto& socket) { socket.close(); }); }, kNeedsOpen},
    {"ClosedClient_close", [] { withClosed<TCPClientSocket>([](auto& client) { client.close(); }); }, kNeedsOpen},
    {"ClosedServer_accept", [] { withClosed<TCPServer>([](auto& server) { server.accept(); }); }, kNeedsOpen},
    {"ClosedServer_close", [] { withClosed<TCPServer>([](auto& server) { server.close(); }); }, kNeedsOpen},
    {"OpenClient_connect", [] { withOpenClient([](auto& client) { client.connect(kLoopback, 80); }); }, kNeedsClosed},
    {"OpenClient_Destructor", [] { withOpenClient([](auto&) {}); }, kNeedsClosed},
    {"OpenServer_listen", [] { withOpenServer([](auto& server) { server.listen(80); }); }, kNeedsClosed},
    {"OpenServer_Destructor", [] { withOpenServer([](auto&) {}); }, kNeedsClosed},
    {"ClosedAgain_close",
     [] {
         withOpenClient([](auto& client) {
             client.close();
             client.close();
         });
     },
     kNeedsOpen},
};

class TCPMisuseDeathTest : public ::testing::TestWithParam<Misuse>
{};

TEST_P(TCPMisuseDeathTest, ACallInTheWrongStateStopsTheProcessAtTheAssertionOfThatStateBeforeAnyCallOfTheSystem)
{
    EXPECT_DEATH(GetParam().misuse(), assertionFailedAfter({}, GetParam().assertion));
}

INSTANTIATE_TEST_SUITE_P(EveryPrecondition, TCPMisuseDeathTest, ::testing::ValuesIn(kMisuses),
                         [](const auto& test) { return test.param.name; });

TEST(TCPMisuseDeathTest, DestroyingAnAcceptedSocketWithoutCloseStopsTheProcess)
{
    TCPServer server;
    TCPClientSocket client;
    client.connect(kLoopback, listenAtAFreePort(server));
    TCPSocket* const accepted = server.accept();

    EXPECT_DEATH(delete accepted, assertionFailed("m_data->m_socket == -1"));
    accepted->close(); // NOLINT(clang-analyzer-cplusplus.NewDelete): another process has deleted its copy
    delete accepted;
    client.close();
    server.close();
}

} // namespace
