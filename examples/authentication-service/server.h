#ifndef SERVER_H
#define SERVER_H

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include <poll.h>

#include "client.h"
#include "worker.h"

/// What a service can bear. More clients and requests than these are turned away.
struct Limits
{
    std::size_t clients = 64;     // at once; the one that has been asking the longest makes room for a new one
    std::size_t requests = 8;     // that wait for the chip; further clients are told to try later
    std::chrono::seconds time{5}; // for a client, from its connection to its whole answer
};

/// Serves all clients from one thread, which never waits for one of them.
class Server
{
public:
    /// All three descriptors belong to the caller. Serves until @p ends can be read; @p woken is the other end of the
    /// worker's.
    Server(int listener, int ends, int woken, Worker& worker, const Limits& limits)
        : m_listener(listener), m_ends(ends), m_woken(woken), m_worker(worker), m_limits(limits)
    {}

    void serve();

private:
    void waitForEvents();
    bool canBeRead(int descriptor) const;
    void acceptClients();
    void makeRoom();
    void readRequests();
    void readRequest(std::uint64_t number, Client& client);
    void handOver(std::uint64_t number, Client& client);
    void deliverAnswers();
    void dropTheGone();
    int timeout() const;

    const int m_listener;
    const int m_ends;
    const int m_woken;
    Worker& m_worker;
    const Limits m_limits;
    std::map<std::uint64_t, std::unique_ptr<Client>> m_clients; // by number, so in the order in which they came
    std::vector<pollfd> m_events;
    std::uint64_t m_lastNumber = 0;
    std::size_t m_requests = 0; // with the worker, also for clients that have gone meanwhile
};

#endif
