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
 * A bus that replays a recording: the same messages in the same order, with the same bytes, refusals and short counts.
 * The first message that differs ends the replay: it and all later ones fail.
 *
 * Where the recording omits bytes, writes may have any bytes, and reads deliver zeros.
 *
 * Threads:   as Bus; messagesLeft() may be called from any thread.
 * Ownership: the recording stays the caller's and outlives the bus.
 */
class ReplayedBus : public Bus
{
public:
    /// Receives a text with the expected and the actual message; called at most once, by the thread of the message.
    using Report = std::function<void(const std::string& difference)>;

    ReplayedBus(const Capture::Recording& recording, Report report);

    Transfer write(unsigned address, const AL::U8* data, std::size_t length) override;
    Transfer read(unsigned address, AL::U8* data, std::size_t length) override;

    std::size_t messageCount() const { return m_messages.size(); }
    /// How many messages of the recording are still to come; 0 if one differed.
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

/// The messages on the wires of the recording's first bus.
std::vector<const Capture::Message*> messagesOf(const Capture::Recording& recording);
/// The addresses that a kernel driver held.
std::set<unsigned> boundAddressesOf(const Capture::Recording& recording);
/// The path of the node; empty for a recording without messages.
std::string nodeOf(const Capture::Recording& recording);

/// The result of a recorded message, in the form of a bus.
Transfer transferOf(const Capture::Message& message);

} // namespace VorelKestrel::Simulator

#endif
