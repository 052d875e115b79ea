// The other side of examples/authentication-service, and its judge.
// Usage: authenticationclient PORT LENGTH authentic COUNT   connects so often, then has a challenge signed by each
//        authenticationclient PORT LENGTH refused           sends a challenge that the chip does not take
//        authenticationclient PORT LENGTH cut-off           goes away in the middle of a request, then makes a whole
//        one
// LENGTH is that of the challenges.
// Exit status: 0 everything is as it should be, 1 it is not, 3 a signature is not authentic

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <openssl/rand.h>

#include <abstractionlibrary/tcpsocket.h>

#include "tests/simulator/chip/signaturecheck.h"

using VorelKestrel::Bytes;
using VorelKestrel::AL::TCPClientSocket;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U8;

namespace {

constexpr int kNotAuthentic = 3;

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

int expectAuthenticAnswer(Client& client, const Bytes& challenge)
{
    constexpr unsigned kDeviceId = 0x200; // the simulator's
    if (client.receiveBigEndian(1) != 0 || client.receiveBigEndian(4) != kDeviceId)
        return EXIT_FAILURE;
    const Bytes certificate = client.receive(client.receiveBigEndian(2));
    const Bytes signature = client.receive(client.receiveBigEndian(2));
    if (!isAuthentic(certificate, challenge, signature))
        return kNotAuthentic;
    return client.hasHungUp() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int expectAuthentic(U16 port, std::size_t length, int count)
{
    struct Exchange
    {
        Exchange(U16 port, std::size_t length) : client(port), challenge(randomChallenge(length)) {}

        Client client;
        const Bytes challenge;
    };
    std::vector<std::unique_ptr<Exchange>> exchanges;
    for (; count > 0; --count)
        exchanges.push_back(std::make_unique<Exchange>(port, length)); // all wait in the service's backlog
    for (const auto& exchange : exchanges)
        exchange->client.send(request(exchange->challenge));
    int status = EXIT_SUCCESS;
    for (const auto& exchange : exchanges)
        status = std::max(status, expectAuthenticAnswer(exchange->client, exchange->challenge));
    return status;
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
