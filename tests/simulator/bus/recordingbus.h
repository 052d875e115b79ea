#ifndef TESTS_SIMULATOR_BUS_RECORDINGBUS_H
#define TESTS_SIMULATOR_BUS_RECORDINGBUS_H

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

#include "common/bytes.h"
#include "simulator/bus/bus.h"

/// A bus that records the messages, and answers as the test has set.
class RecordingBus : public VorelKestrel::Simulator::Bus
{
public:
    using Bytes = VorelKestrel::Bytes;
    using Outcome = VorelKestrel::Simulator::Outcome;
    using Transfer = VorelKestrel::Simulator::Transfer;
    using U8 = VorelKestrel::AL::U8;

    Transfer write(unsigned address, const U8* data, std::size_t length) override
    {
        note("write", address);
        for (std::size_t i = 0; i < length; ++i)
            note(data[i]);
        return answer(length);
    }
    Transfer read(unsigned address, U8* data, std::size_t length) override
    {
        note("read", address);
        m_conversation += " " + std::to_string(length);
        for (std::size_t i = 0; i < length && i < m_content.size(); ++i)
            data[i] = m_content[i];
        return answer(length);
    }

    void setTimeout(std::chrono::milliseconds timeout) override
    {
        m_conversation += (m_conversation.empty() ? "timeout " : "; timeout ") + std::to_string(timeout.count());
    }

    /// "write 2a 00; read 2a 4" and so on, since the last time.
    std::string conversation() { return std::exchange(m_conversation, ""); }

    Outcome m_outcome = Outcome::Done;
    Bytes m_content; // of every read

private:
    void note(const char* direction, unsigned address)
    {
        if (!m_conversation.empty())
            m_conversation += "; ";
        m_conversation += direction;
        note(static_cast<U8>(address));
    }
    void note(U8 byte)
    {
        char text[4];
        std::snprintf(text, sizeof(text), " %02x", byte);
        m_conversation += text;
    }
    Transfer answer(std::size_t length) const { return {m_outcome, m_outcome == Outcome::Done ? length : 0}; }

    std::string m_conversation;
};

#endif
