// Has challenges signed for programs that connect over TCP. README.md says who may, and what they send and get.
// Usage: authentication-service NODE ADDRESS PORT [INTERFACE]   for example: authentication-service /dev/i2c-1 0x2a
// 7000 INTERFACE is the address on which it listens, 127.0.0.1 if it is not given; PORT 0 lets the system choose. It
// serves until SIGTERM or SIGINT.

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <log4cplus/consoleappender.h>
#include <log4cplus/logger.h>

#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/dbglog.h>

#include "server.h"

using namespace VorelKestrel;

// Every host defines this: the name of a function in the drivers' trace lines.
std::string dbglog_scopedFunction(const std::string& prettyFunction, const std::string& /*component*/)
{
    return prettyFunction;
}

namespace {

constexpr char kLoopback[] = "127.0.0.1"; // any client that can connect can have anything signed

/// Owns a descriptor that the system has just made; throws if it was refused.
class Descriptor
{
public:
    Descriptor(int number, const char* what) : m_number(number)
    {
        if (number < 0)
            throw std::runtime_error(std::string("cannot ") + what);
    }
    ~Descriptor() { close(m_number); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_number; }

private:
    const int m_number;
};

/// Opens what was closed when the program started: the node would get the number of a closed standard output, and the
/// chip every line that goes there, also the library's own.
void occupyStandardDescriptors()
{
    int opened = 0;
    while (opened >= 0 && opened <= STDERR_FILENO)
        opened = open("/dev/null", O_RDWR);
    close(opened); // was not needed
}

/// Without an appender log4cplus complains about itself at the driver's first line.
void sendLogToStandardError()
{
    const log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(console);
    root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

sockaddr_in addressOf(const char* interface, int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (inet_pton(AF_INET, interface, &address.sin_addr) != 1)
        throw std::runtime_error(std::string(interface) + " is no IPv4 address");
    return address;
}

/// Prints where it listens, because the system may have chosen the port.
void listenOn(int socket, sockaddr_in address)
{
    const int yes = 1; // a service that is started again does not wait for its old connections
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    socklen_t length = sizeof(address);
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    if (bind(socket, general, length) != 0 || listen(socket, SOMAXCONN) != 0 ||
        getsockname(socket, general, &length) != 0)
        throw std::runtime_error("cannot listen there: is another service running?");
    std::fprintf(stderr, "authentication-service: listening on port %d\n", ntohs(address.sin_port));
}

/// Becomes readable at the signals that end the service. Call before other threads are started.
int endingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

void serve(ACD::AuthChipDriver& chip, const sockaddr_in& address)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw std::runtime_error("cannot make a pipe");
    const Descriptor woken(ends[0], "make a pipe");
    const Descriptor wakes(ends[1], "make a pipe");
    const Descriptor signals(endingSignals(), "wait for signals");
    const Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "make a socket");
    listenOn(listener.get(), address);

    Worker worker(chip, wakes.get());
    worker.start();
    Server(listener.get(), signals.get(), woken.get(), worker, Limits()).serve();
}

int number(const char* text, int most)
{
    char* end = nullptr;
    const long value = std::strtol(text, &end, 0);
    if (end == text || *end != '\0' || value < 0 || value > most)
        throw std::runtime_error(std::string(text) + " is no number up to " + std::to_string(most));
    return static_cast<int>(value);
}

} // namespace

int main(int argc, char** argv)
try {
    occupyStandardDescriptors();
    if (argc != 4 && argc != 5) {
        std::fprintf(stderr, "usage: authentication-service NODE ADDRESS PORT [INTERFACE]\n");
        return 2;
    }
    const sockaddr_in address = addressOf(argc == 5 ? argv[4] : kLoopback, number(argv[3], 0xffff));
    sendLogToStandardError();
    // The first call comes before other threads exist.
    ACD::AuthChipDriver* chip = ACD::AuthChipFactory::getAuthChipDriverInstance(argv[1], number(argv[2], 0x7f));
    if (chip == nullptr) {
        std::fprintf(stderr, "authentication-service: there is no chip\n"); // standard output has the reason
        return EXIT_FAILURE;
    }
    serve(*chip, address);
    return EXIT_SUCCESS;
} catch (const std::exception& error) {
    std::fprintf(stderr, "authentication-service: %s\n", error.what());
    return EXIT_FAILURE;
}
