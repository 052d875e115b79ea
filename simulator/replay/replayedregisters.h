#ifndef SIMULATOR_REPLAY_REPLAYEDREGISTERS_H
#define SIMULATOR_REPLAY_REPLAYEDREGISTERS_H

#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "capture/recording.h"
#include "simulator/bus/bus.h"

namespace VorelKestrel::Simulator {

/**
 * A bus whose chip answers each register as in a recording, in any order. The first access gets the first recorded
 * answer, and so on; the last answer repeats. Registers that are not in the recording are refused.
 *
 * Threads:   as Bus.
 * Ownership: the recording stays the caller's and outlives the bus.
 */
class ReplayedRegisters : public Bus
{
public:
    explicit ReplayedRegisters(const Capture::Recording& recording);

    Transfer write(unsigned address, const AL::U8* data, std::size_t length) override;
    Transfer read(unsigned address, AL::U8* data, std::size_t length) override;

private:
    /// What a message does with a register.
    enum class Access
    {
        Name,
        Write,
        Read
    };
    using Key = std::pair<Access, std::optional<AL::U8>>;

    static Access writeOf(std::size_t length) { return length > 1 ? Access::Write : Access::Name; }
    /// Null if there is no answer.
    const Capture::Message* answerTo(unsigned address, const Key& key);

    std::map<Key, std::deque<const Capture::Message*>> m_answers;
    std::optional<AL::U8> m_register; // named last
};

} // namespace VorelKestrel::Simulator

#endif
