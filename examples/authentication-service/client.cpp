#include "client.h"

#include <cerrno>

#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::size_t kPrefix = 2;            // the challenge's length
constexpr std::size_t kLongestChallenge = 64; // more than any chip takes

bool isOnlyLater(ssize_t result)
{
    return result < 0 && (errno == EAGAIN || errno == EINTR);
}

std::size_t lengthIn(const Bytes& request)
{
    return static_cast<std::size_t>(request[0]) << 8U | request[1];
}

} // namespace

Client::~Client()
{
    close(m_descriptor);
}

void Client::receive()
{
    Bytes bytes(kPrefix + kLongestChallenge);
    const ssize_t count = recv(m_descriptor, bytes.data(), bytes.size() - m_bytes.size(), 0);
    if (isOnlyLater(count))
        return;
    if (count <= 0) {
        m_state = State::Gone;
        return;
    }
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.begin() + count);
    if (m_bytes.size() < kPrefix)
        return;
    if (lengthIn(m_bytes) > kLongestChallenge)
        answer(invalidAnswer());
    else if (m_bytes.size() >= kPrefix + lengthIn(m_bytes))
        m_state = State::Waiting;
}

Bytes Client::challenge() const
{
    const auto begin = m_bytes.begin() + kPrefix;
    return {begin, begin + static_cast<std::ptrdiff_t>(lengthIn(m_bytes))};
}

void Client::answer(const Bytes& bytes)
{
    m_bytes = bytes;
    m_state = State::Answered;
    send();
}

void Client::send()
{
    const ssize_t count = ::send(m_descriptor, m_bytes.data(), m_bytes.size(), MSG_NOSIGNAL);
    if (isOnlyLater(count))
        return;
    if (count > 0)
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + count);
    if (count < 0 || m_bytes.empty())
        m_state = State::Gone;
}
