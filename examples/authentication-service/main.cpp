// Has challenges signed for programs that connect over TCP: the main thread takes connections, a worker asks the chip.
// Usage: authentication-service NODE ADDRESS PORT CONNECTIONS   for example: authentication-service /dev/i2c-1 0x2a
// 7000 1
//
// A client sends, and gets, integers with the highest byte first:
//     to the service    U16 length, challenge: as long as the chip takes it
//     to the client     U8 status (an ACD::Error), and if it is 0: U32 device ID, U16 length, certificate,
//                       U16 length, signature
// The service ends after that many connections.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <abstractionlibrary/queue.h>
#include <abstractionlibrary/tcpsocket.h>
#include <abstractionlibrary/thread.h>
#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/dbglog.h>

using namespace VorelKestrel;

// Every host defines this: the name of a function in the drivers' trace lines.
std::string dbglog_scopedFunction(const std::string& prettyFunction, const std::string& /*component*/)
{
    return prettyFunction;
}

namespace {

using Bytes = std::vector<AL::U8>;

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

struct Request
{
    Connection client; // null: there will be no further request
    Bytes challenge;
};

struct Authentication
{
    ACD::Error error = ACD::ErrorInvalid;
    AL::U32 deviceId = 0;
    Bytes certificate;
    Bytes signature;
};

ACD::Error readCertificate(ACD::AuthChipDriver& chip, Bytes& certificate)
{
    int length = 0;
    const ACD::Error error = chip.getAccessoryCertificateDataLength(length);
    if (error != ACD::Success)
        return error;
    certificate.resize(static_cast<std::size_t>(length));
    return chip.getAccessoryCertificateData(certificate.data(), length);
}

ACD::Error sign(ACD::AuthChipDriver& chip, const Bytes& challenge, Bytes& signature)
{
    AL::U8* block = nullptr;
    int length = 0;
    const ACD::Error error = chip.newSignature(challenge.data(), static_cast<int>(challenge.size()), &block, &length);
    if (error != ACD::Success)
        return error;
    signature.assign(block, block + length);
    std::free(block);
    return error;
}

Authentication authenticate(ACD::AuthChipDriver& chip, const Bytes& challenge)
{
    Authentication result;
    int length = 0;
    chip.getChallengeDataMaximumLength(length);
    if (challenge.size() != static_cast<std::size_t>(length)) // a shorter one would be easier to guess
        return result;
    result.error = chip.getDeviceID(result.deviceId);
    if (result.error == ACD::Success)
        result.error = readCertificate(chip, result.certificate);
    if (result.error == ACD::Success)
        result.error = sign(chip, challenge, result.signature);
    return result;
}

/// One send() may take less than all.
bool sendAll(AL::TCPSocket& socket, const Bytes& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const std::size_t now = socket.send(bytes.data() + sent, bytes.size() - sent);
        if (now == static_cast<std::size_t>(-1))
            return false;
        sent += now;
    }
    return true;
}

bool sendBlock(AL::TCPSocket& socket, const Bytes& block)
{
    return socket.sendU16(static_cast<AL::U16>(block.size())) && sendAll(socket, block);
}

bool answer(AL::TCPSocket& client, const Authentication& result)
{
    if (!client.sendU8(static_cast<AL::U8>(result.error)) || result.error != ACD::Success)
        return false;
    return client.sendU32(result.deviceId) && sendBlock(client, result.certificate) &&
           sendBlock(client, result.signature);
}

/// One receive() may deliver less than all.
bool receiveAll(AL::TCPSocket& socket, Bytes& bytes)
{
    std::size_t received = 0;
    while (received < bytes.size()) {
        const std::size_t now = socket.receive(bytes.data() + received, bytes.size() - received);
        if (now == 0 || now == static_cast<std::size_t>(-1))
            return false;
        received += now;
    }
    return true;
}

bool receiveChallenge(AL::TCPSocket& client, Bytes& challenge)
{
    AL::U16 length = 0;
    if (!client.receiveU16(length)) // also if only one byte has come: it is lost, and with it the connection
        return false;
    challenge.resize(length);
    return receiveAll(client, challenge);
}

/// The one thread that talks to the chip.
class Worker : public AL::Thread
{
public:
    explicit Worker(ACD::AuthChipDriver& chip) : m_chip(chip) {}
    /// Requires: finish() was called, if start() was.
    ~Worker() override = default;

    /// Takes over the request; any thread may call.
    void handOver(std::unique_ptr<Request> request) { m_requests.push(request.release()); }

    /// Returns when every request has been answered.
    void finish()
    {
        handOver(std::make_unique<Request>());
        join();
    }

    void run() override
    {
        for (;;) {
            int timeout = -1; // no limit; pop() writes to it
            const std::unique_ptr<Request> request(static_cast<Request*>(m_requests.pop(timeout)));
            if (request->client == nullptr)
                return;
            if (!answer(*request->client, authenticate(m_chip, request->challenge)))
                std::fprintf(stderr, "authentication-service: a request was refused or its client has gone\n");
        }
    }

private:
    ACD::AuthChipDriver& m_chip;
    AL::QueueVoid m_requests; // of Request, which the queue does not own
};

void takeConnections(AL::TCPServer& server, Worker& worker, int connections)
{
    for (; connections > 0; --connections) {
        auto request = std::make_unique<Request>();
        request->client.reset(server.accept());
        if (request->client != nullptr && receiveChallenge(*request->client, request->challenge))
            worker.handOver(std::move(request));
    }
}

int serve(ACD::AuthChipDriver& chip, AL::U16 port, int connections)
{
    AL::TCPServer server;
    if (!server.listen(port)) {
        std::fprintf(stderr, "authentication-service: port %d is taken\n", port);
        return EXIT_FAILURE;
    }
    std::fprintf(stderr, "authentication-service: listening\n");

    Worker worker(chip);
    worker.start();
    takeConnections(server, worker, connections);
    worker.finish();
    server.close();
    return EXIT_SUCCESS;
}

int number(const char* text)
{
    return static_cast<int>(std::strtol(text, nullptr, 0));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: authentication-service NODE ADDRESS PORT CONNECTIONS\n");
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN); // a client that goes away is a failed send, not the end of the service
    // The first call is made before there are other threads.
    ACD::AuthChipDriver* chip = ACD::AuthChipFactory::getAuthChipDriverInstance(argv[1], number(argv[2]));
    if (chip == nullptr) {
        std::fprintf(stderr, "authentication-service: there is no chip\n"); // standard output has the reason
        return EXIT_FAILURE;
    }
    return serve(*chip, static_cast<AL::U16>(number(argv[3])), number(argv[4]));
}
