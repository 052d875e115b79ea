#ifndef SIMULATOR_REPLAY_REPLAYEDBUS_H
#define SIMULATOR_REPLAY_REPLAYEDBUS_H

#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "capture/recording.h"
#include "simulator/bus/bus.h"

namespace VorelKestrel::Simulator {

/**
 * A bus on which a recording happens again: message by message, with the same bytes, refusals and short counts, in the
 * same order. The first message that differs ends it: that one and all behind it fail.
 *
 * Where bytes were left out of the recording, any bytes are taken, and zeroes are given.
 *
 * Threads:   as Bus; messagesLeft() may be called from any thread.
 * Ownership: the recording stays the caller's and outlives the bus.
 */
class ReplayedBus : public Bus
{
public:
    /// What was expected and what came, in words for people; called once at most, by the thread of the message.
    using Report = std::function<void(const std::string& difference)>;

    ReplayedBus(const Capture::Recording& recording, Report report);

    Transfer write(unsigned address, const AL::U8* data, std::size_t length) override;
    Transfer read(unsigned address, AL::U8* data, std::size_t length) override;

    std::size_t messageCount() const { return m_messages.size(); }
    /// How many messages of the recording have not come again; 0 if one differed.
    std::size_t messagesLeft() const;

private:
    Transfer differ(const std::string& came);
    Transfer accept(const Capture::Message& message);
    bool matches(unsigned address, bool isRead, const AL::U8* data, std::size_t length) const;

    const std::vector<const Capture::Message*> m_messages;
    const Report m_report;
    mutable std::mutex m_mutex;
    std::size_t m_next = 0;     // guarded by m_mutex
    bool m_hasDiffered = false; // guarded by m_mutex
};

/// The messages of a recording that were on the wires of its first bus.
std::vector<const Capture::Message*> messagesOf(const Capture::Recording& recording);
/// The addresses that a driver of the kernel had.
std::set<unsigned> boundAddressesOf(const Capture::Recording& recording);
/// The path of the node; empty of a recording without messages.
std::string nodeOf(const Capture::Recording& recording);

/// How a message ended, for a bus.
Transfer transferOf(const Capture::Message& message);

} // namespace VorelKestrel::Simulator

#endif
