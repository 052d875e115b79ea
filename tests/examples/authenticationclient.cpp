// The other side of examples/authentication-service, and its judge.
// Usage: authenticationclient PORT LENGTH authentic COUNT   connects so often, then has a challenge signed by each
//        authenticationclient PORT LENGTH refused           sends a challenge that the chip does not take
//        authenticationclient PORT LENGTH cut-off           goes away in the middle of a request, then makes a whole
//        one
//        authenticationclient PORT LENGTH silent            says nothing until the service hangs up
//        authenticationclient PORT LENGTH besieged COUNT    makes so many connections of slow and hostile clients, and
//        has a challenge signed after every hundredth
//        authenticationclient PORT LENGTH overloading       keeps the service off the bus, and asks once too often
// LENGTH is that of the challenges.
// A status of 255 means that the service is busy: the challenge is sent again, by another connection.
// Exit status: 0 everything is as it should be, 1 it is not, 3 a signature is not authentic

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/rand.h>
#include <sys/socket.h>

#include <abstractionlibrary/globalmutex.h>
#include <abstractionlibrary/tcpsocket.h>

#include "common/scopeddescriptor.h"
#include "tests/simulator/chip/signaturecheck.h"

using VorelKestrel::Bytes;
using VorelKestrel::AL::TCPClientSocket;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U8;

namespace {

constexpr int kNotAuthentic = 3;
constexpr unsigned kBusy = 255;

/// A connection that is closed at the end of the scope. Reads and writes byte by byte what the service documents.
class Client
{
public:
    explicit Client(U16 port)
    {
        if (!m_socket.connect("127.0.0.1", port))
            throw std::runtime_error("the service cannot be reached");
    }
    ~Client() { m_socket.close(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void send(const Bytes& bytes)
    {
        if (m_socket.send(bytes.data(), bytes.size()) != bytes.size())
            throw std::runtime_error("the service does not listen");
    }

    Bytes receive(std::size_t count)
    {
        Bytes bytes(count);
        for (U8& byte : bytes) {
            if (m_socket.receive(&byte, 1) != 1)
                throw std::runtime_error("the service has hung up");
        }
        return bytes;
    }

    unsigned receiveBigEndian(std::size_t width)
    {
        unsigned value = 0;
        for (const U8 byte : receive(width))
            value = value << 8U | byte;
        return value;
    }

    bool hasHungUp()
    {
        U8 byte = 0;
        return m_socket.receive(&byte, 1) == 0;
    }

private:
    TCPClientSocket m_socket;
};

Bytes randomChallenge(std::size_t length)
{
    Bytes challenge(length);
    RAND_bytes(challenge.data(), static_cast<int>(length));
    return challenge;
}

Bytes request(const Bytes& challenge)
{
    constexpr std::size_t kPrefix = 2;
    Bytes bytes(kPrefix + challenge.size());
    bytes[0] = static_cast<U8>(challenge.size() >> 8U);
    bytes[1] = static_cast<U8>(challenge.size());
    std::copy(challenge.begin(), challenge.end(), bytes.begin() + kPrefix);
    return bytes;
}

int expectAuthenticAnswer(Client& client, const Bytes& challenge, unsigned status)
{
    constexpr unsigned kDeviceId = 0x200; // the simulator's
    if (status != 0 || client.receiveBigEndian(4) != kDeviceId)
        return EXIT_FAILURE;
    const Bytes certificate = client.receive(client.receiveBigEndian(2));
    const Bytes signature = client.receive(client.receiveBigEndian(2));
    if (!isAuthentic(certificate, challenge, signature))
        return kNotAuthentic;
    return client.hasHungUp() ? EXIT_SUCCESS : EXIT_FAILURE;
}

struct Exchange
{
    Exchange(U16 port, std::size_t length) : client(port), challenge(randomChallenge(length)) {}

    Client client;
    const Bytes challenge;
};

int expectAuthenticAnswers(const std::vector<std::unique_ptr<Exchange>>& exchanges)
{
    int status = EXIT_SUCCESS;
    for (const auto& exchange : exchanges)
        status = std::max(
            status, expectAuthenticAnswer(exchange->client, exchange->challenge, exchange->client.receiveBigEndian(1)));
    return status;
}

int expectAuthentic(U16 port, std::size_t length, int count)
{
    std::vector<std::unique_ptr<Exchange>> exchanges;
    for (; count > 0; --count)
        exchanges.push_back(std::make_unique<Exchange>(port, length)); // all wait in the service's backlog
    for (const auto& exchange : exchanges)
        exchange->client.send(request(exchange->challenge));
    return expectAuthenticAnswers(exchanges);
}

int expectSilenceToEnd(U16 port)
{
    Client client(port);
    return client.hasHungUp() ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// A client that does not keep to what is agreed, and keeps its connection as long as it can.
class HostileClient
{
public:
    static constexpr int kKinds = 6;

    HostileClient(U16 port, std::size_t length, int kind) : m_socket(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(m_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
            throw std::runtime_error("the service cannot be reached by a hostile client");
        behave(length, kind);
    }

    bool wasHungUpOn() const
    {
        std::array<char, 4096> answer{};
        ssize_t result = 1;
        while (result > 0)
            result = recv(m_socket.get(), answer.data(), answer.size(), MSG_DONTWAIT);
        return result == 0 || errno != EAGAIN;
    }

private:
    void behave(std::size_t length, int kind)
    {
        const Bytes whole = request(randomChallenge(length));
        switch (kind) {
        case 0: // silent
            break;
        case 1: // half a length
            send({0});
            break;
        case 2: // all but a byte
            send(Bytes(whole.begin(), whole.end() - 1));
            break;
        case 3: // a length that no chip takes, and more bytes than it says
            send(Bytes(4096, 0xff));
            break;
        case 4: // a request whose answer it does not fetch
            send(whole);
            break;
        default: // a request, and then a reset
            send(whole);
            reset();
        }
    }

    void send(const Bytes& bytes) const
    {
        if (::send(m_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
            std::cerr << "a hostile client has been hung up on already\n";
    }

    void reset()
    {
        const linger atOnce = {1, 0};
        setsockopt(m_socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
        m_socket = VorelKestrel::ScopedDescriptor();
    }

    VorelKestrel::ScopedDescriptor m_socket;
};

/// As a client does that the service tells to come again.
int expectAuthenticInTheEnd(U16 port, std::size_t length)
{
    constexpr int kMostAttempts = 10000;
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        Client client(port);
        const Bytes challenge = randomChallenge(length);
        client.send(request(challenge));
        const unsigned status = client.receiveBigEndian(1);
        if (status != kBusy)
            return expectAuthenticAnswer(client, challenge, status);
    }
    return EXIT_FAILURE;
}

/// The first clients that only connect would be served last; the service knows that they are slow.
int besiege(U16 port, std::size_t length, int count)
{
    constexpr int kWave = 100;
    constexpr std::size_t kMostOpen = 500; // fewer than a process may have
    constexpr std::ptrdiff_t kPlaces = 64; // that the service has
    std::deque<HostileClient> clients;
    int status = EXIT_SUCCESS;
    for (int i = 0; i < count; ++i) {
        clients.emplace_back(port, length, i % HostileClient::kKinds);
        if (clients.size() > kMostOpen)
            clients.pop_front();
        if (i % kWave == kWave - 1)
            status = std::max(status, expectAuthenticInTheEnd(port, length));
    }
    const auto gone = std::count_if(clients.begin(), clients.end(), [](const auto& one) { return one.wasHungUpOn(); });
    const auto left = static_cast<std::ptrdiff_t>(clients.size()) - gone;
    if (left > kPlaces)
        std::cerr << left << " hostile clients are still connected\n";
    return left > kPlaces ? EXIT_FAILURE : status;
}

int overload(U16 port, std::size_t length)
{
    constexpr int kWaiting = 8; // that the service takes
    VorelKestrel::AL::GlobalMutex bus;
    bus.lock();
    std::vector<std::unique_ptr<Exchange>> exchanges;
    for (int i = 0; i <= kWaiting; ++i) {
        exchanges.push_back(std::make_unique<Exchange>(port, length));
        exchanges.back()->client.send(request(exchanges.back()->challenge)); // before the next comes
    }
    const bool isBusy = exchanges.back()->client.receiveBigEndian(1) == kBusy && exchanges.back()->client.hasHungUp();
    bus.unlock();
    exchanges.pop_back();
    const int status = expectAuthenticAnswers(exchanges);
    return isBusy ? status : EXIT_FAILURE;
}

int expectRefusal(U16 port, std::size_t length)
{
    constexpr unsigned kErrorInvalid = 2;
    Client client(port);
    client.send(request(randomChallenge(length)));
    return client.receiveBigEndian(1) == kErrorInvalid && client.hasHungUp() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int goAwayAndComeBack(U16 port, std::size_t length)
{
    Client(port).send({0, static_cast<U8>(length), 1, 2, 3});
    return expectAuthentic(port, length, 1);
}

int run(U16 port, std::size_t length, const std::string& task, const std::string& count)
{
    if (task == "authentic")
        return expectAuthentic(port, length, std::stoi(count));
    if (task == "refused")
        return expectRefusal(port, length);
    if (task == "silent")
        return expectSilenceToEnd(port);
    if (task == "besieged")
        return besiege(port, length, std::stoi(count));
    if (task == "overloading")
        return overload(port, length);
    return goAwayAndComeBack(port, length);
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc < 4)
        return 2;
    return run(static_cast<U16>(std::stoi(argv[1])), std::stoul(argv[2]), argv[3], argc > 4 ? argv[4] : "");
} catch (const std::exception& error) {
    std::cerr << "authenticationclient: " << error.what() << '\n';
    return EXIT_FAILURE;
}
