#include "server.h"

#include <algorithm>

#include <sys/socket.h>
#include <unistd.h>

void Server::serve()
{
    for (;;) {
        waitForEvents();
        if (canBeRead(m_ends))
            return;
        deliverAnswers();
        readRequests();
        if (canBeRead(m_listener))
            acceptClients();
        dropTheGone();
    }
}

void Server::waitForEvents()
{
    m_events = {{m_ends, POLLIN, 0}, {m_woken, POLLIN, 0}, {m_listener, POLLIN, 0}};
    for (const auto& [number, client] : m_clients) {
        if (client->state() != Client::State::Waiting) {
            const bool isAsking = client->state() == Client::State::Asking;
            m_events.push_back({client->descriptor(), static_cast<short>(isAsking ? POLLIN : POLLOUT), 0});
        }
    }
    if (poll(m_events.data(), m_events.size(), timeout()) < 0)
        m_events.clear(); // a signal
}

/// Until the first deadline, in milliseconds; -1: there is none.
int Server::timeout() const
{
    if (m_clients.empty())
        return -1;
    const auto left = m_clients.begin()->second->deadline() - Client::Clock::now(); // the first has the earliest
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(left).count() + 1;
    return static_cast<int>(std::max<long long>(0, milliseconds));
}

bool Server::canBeRead(int descriptor) const
{
    return std::any_of(m_events.begin(), m_events.end(),
                       [=](const pollfd& event) { return event.fd == descriptor && event.revents != 0; });
}

/// Many in each round: otherwise clients that only connect, again and again, let all others wait in the backlog.
void Server::acceptClients()
{
    for (std::size_t i = 0; i < m_limits.clients; ++i) {
        makeRoom();
        if (m_clients.size() >= m_limits.clients)
            return; // all wait for the chip; the system keeps the new one in its backlog
        const int descriptor = accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (descriptor < 0)
            return;
        auto client = std::make_unique<Client>(descriptor, Client::Clock::now() + m_limits.time);
        readRequest(++m_lastNumber, *client);
        m_clients[m_lastNumber] = std::move(client);
    }
}

/// Only slow ones can be driven out: a client whose request has come is past the asking.
void Server::makeRoom()
{
    if (m_clients.size() < m_limits.clients)
        return;
    for (auto entry = m_clients.begin(); entry != m_clients.end(); ++entry) {
        auto& [number, client] = *entry;
        if (client->state() == Client::State::Asking)
            readRequest(number, *client); // it may have come in this round
        if (client->state() != Client::State::Waiting) {
            m_clients.erase(entry);
            return;
        }
    }
}

void Server::readRequests()
{
    for (auto& [number, client] : m_clients) {
        if (!canBeRead(client->descriptor()))
            continue;
        if (client->state() == Client::State::Asking)
            readRequest(number, *client);
        else if (client->state() == Client::State::Answered)
            client->send();
    }
}

void Server::readRequest(std::uint64_t number, Client& client)
{
    client.receive();
    handOver(number, client);
}

void Server::handOver(std::uint64_t number, Client& client)
{
    if (client.state() != Client::State::Waiting)
        return;
    if (m_requests >= m_limits.requests) {
        client.answer(busyAnswer());
        return;
    }
    auto job = std::make_unique<Job>();
    job->client = number;
    job->challenge = client.challenge();
    m_worker.handOver(std::move(job));
    ++m_requests;
}

void Server::deliverAnswers()
{
    char bytes[64];
    if (canBeRead(m_woken) && read(m_woken, bytes, sizeof(bytes)) < 0)
        return;
    while (const std::unique_ptr<Job> job = m_worker.takeDone()) {
        --m_requests;
        const auto client = m_clients.find(job->client);
        if (client != m_clients.end()) // or it was too late
            client->second->answer(job->answer);
    }
}

void Server::dropTheGone()
{
    const auto now = Client::Clock::now();
    for (auto client = m_clients.begin(); client != m_clients.end();) {
        const bool isGone = client->second->state() == Client::State::Gone || client->second->deadline() <= now;
        client = isGone ? m_clients.erase(client) : std::next(client);
    }
}
