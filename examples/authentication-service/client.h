#ifndef CLIENT_H
#define CLIENT_H

#include <chrono>

#include "authentication.h"

/// A connection: first its request comes in, then the chip has it, then its answer goes out. Never waits.
class Client
{
public:
    using Clock = std::chrono::steady_clock;

    /// Takes over the descriptor.
    Client(int descriptor, Clock::time_point deadline) : m_descriptor(descriptor), m_deadline(deadline) {}
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    enum class State
    {
        Asking,
        Waiting, // for the chip
        Answered,
        Gone
    };
    State state() const { return m_state; }
    int descriptor() const { return m_descriptor; }
    /// When it has to be through with everything.
    Clock::time_point deadline() const { return m_deadline; }

    /// Reads what has come. The state becomes Waiting when the challenge is whole.
    void receive();
    Bytes challenge() const;

    /// Sends as much of the answer as goes. The state becomes Gone when that is all.
    void answer(const Bytes& bytes);
    void send();

private:
    const int m_descriptor;
    const Clock::time_point m_deadline;
    State m_state = State::Asking;
    Bytes m_bytes; // received, or still to be sent
};

#endif
