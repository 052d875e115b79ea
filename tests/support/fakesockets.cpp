#include "tests/support/fakesockets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>

#include "tests/support/interposition.h"

namespace testsupport {

namespace {

constexpr socklen_t kIpv4AddressLength = 16;

std::atomic<FakeSockets*> g_sockets{nullptr};

std::string socketKind(int domain, int type, int protocol)
{
    if (domain == AF_INET && type == SOCK_STREAM && protocol == IPPROTO_TCP)
        return "tcp";
    return std::to_string(domain) + "/" + std::to_string(type) + "/" + std::to_string(protocol);
}

std::string addressText(const sockaddr* address, socklen_t length)
{
    sockaddr_in ipv4 = {};
    if (address->sa_family != AF_INET || length < sizeof(ipv4))
        return "family " + std::to_string(address->sa_family);
    ipv4 = *reinterpret_cast<const sockaddr_in*>(address);
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &ipv4.sin_addr, text, sizeof(text));
    std::string suffix = length == kIpv4AddressLength ? "" : " length " + std::to_string(length);
    if (std::any_of(std::begin(ipv4.sin_zero), std::end(ipv4.sin_zero), [](unsigned char byte) { return byte != 0; }))
        suffix += " with soiled padding";
    return text + (":" + std::to_string(ntohs(ipv4.sin_port))) + suffix;
}

std::string transferText(std::size_t count, int flags)
{
    return std::to_string(count) + (flags == 0 ? "" : " flags " + std::to_string(flags));
}

/// Answers one call as the test has set, or calls the system.
template<typename Result, typename Function, typename... Arguments>
Result answer(const char* call, const std::string& details, Arguments... arguments)
{
    FakeSockets* const sockets = g_sockets;
    if (const FakeSockets::Answer* const answer = sockets == nullptr ? nullptr : sockets->take(call, details)) {
        errno = answer->error;
        return static_cast<Result>(answer->result);
    }
    return nextDefinition<Function>(call)(arguments...);
}

int noticed(int descriptor)
{
    FakeSockets* const sockets = g_sockets;
    if (sockets != nullptr && descriptor >= 0)
        sockets->made(descriptor);
    return descriptor;
}

ssize_t receiveFrom(int descriptor, void* data, std::size_t count, int flags)
{
    if (FakeSockets* const sockets = g_sockets)
        sockets->receivesInto(data);
    return answer<ssize_t, ssize_t(int, void*, std::size_t, int)>("recv", transferText(count, flags), descriptor, data,
                                                                  count, flags);
}

} // namespace

FakeSockets::FakeSockets()
{
    g_sockets = this;
}

FakeSockets::~FakeSockets()
{
    g_sockets = nullptr;
}

FakeSockets& FakeSockets::answers(const std::string& call, long result, int error)
{
    m_answers[call] = {result, error};
    return *this;
}

FakeSockets& FakeSockets::passesOn(const std::string& call)
{
    m_answers.erase(call);
    return *this;
}

const FakeSockets::Answer* FakeSockets::take(const std::string& call, const std::string& details)
{
    m_journal.add(Journal::Kind::Call, details.empty() ? call : call + " " + details);
    const auto answer = m_answers.find(call);
    return answer == m_answers.end() ? nullptr : &answer->second;
}

bool isOpenDescriptor(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

extern "C" {

int spelledSocket(int domain, int type, int protocol) SPELLING("socket");
int spelledBind(int descriptor, const sockaddr* address, socklen_t length) SPELLING("bind");
int spelledListen(int descriptor, int backlog) SPELLING("listen");
int spelledAccept(int descriptor, sockaddr* address, socklen_t* length) SPELLING("accept");
int spelledConnect(int descriptor, const sockaddr* address, socklen_t length) SPELLING("connect");
int spelledSetsockopt(int descriptor, int level, int name, const void* value, socklen_t length) SPELLING("setsockopt");
ssize_t spelledSend(int descriptor, const void* data, std::size_t count, int flags) SPELLING("send");
ssize_t spelledRecv(int descriptor, void* data, std::size_t count, int flags) SPELLING("recv");
ssize_t spelledRecvChecked(int descriptor, void* data, std::size_t count, std::size_t room, int flags)
    SPELLING("__recv_chk");

int spelledSocket(int domain, int type, int protocol)
{
    return noticed(
        answer<int, int(int, int, int)>("socket", socketKind(domain, type, protocol), domain, type, protocol));
}

int spelledBind(int descriptor, const sockaddr* address, socklen_t length)
{
    return answer<int, int(int, const sockaddr*, socklen_t)>("bind", addressText(address, length), descriptor, address,
                                                             length);
}

int spelledListen(int descriptor, int backlog)
{
    return answer<int, int(int, int)>("listen", std::to_string(backlog), descriptor, backlog);
}

int spelledAccept(int descriptor, sockaddr* address, socklen_t* length)
{
    const std::string room = *length == kIpv4AddressLength ? "" : "length " + std::to_string(*length);
    const std::string details = address == nullptr ? "without a place for the address" : room;
    return noticed(answer<int, int(int, sockaddr*, socklen_t*)>("accept", details, descriptor, address, length));
}

int spelledConnect(int descriptor, const sockaddr* address, socklen_t length)
{
    return answer<int, int(int, const sockaddr*, socklen_t)>("connect", addressText(address, length), descriptor,
                                                             address, length);
}

int spelledSetsockopt(int descriptor, int level, int name, const void* value, socklen_t length)
{
    return answer<int, int(int, int, int, const void*, socklen_t)>("setsockopt", "", descriptor, level, name, value,
                                                                   length);
}

ssize_t spelledSend(int descriptor, const void* data, std::size_t count, int flags)
{
    return answer<ssize_t, ssize_t(int, const void*, std::size_t, int)>("send", transferText(count, flags), descriptor,
                                                                        data, count, flags);
}

ssize_t spelledRecv(int descriptor, void* data, std::size_t count, int flags)
{
    return receiveFrom(descriptor, data, count, flags);
}

ssize_t spelledRecvChecked(int descriptor, void* data, std::size_t count, std::size_t /*room*/, int flags)
{
    return receiveFrom(descriptor, data, count, flags);
}

} // extern "C"

} // namespace testsupport
