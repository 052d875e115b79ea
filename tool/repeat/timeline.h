#ifndef TOOL_REPEAT_TIMELINE_H
#define TOOL_REPEAT_TIMELINE_H

#include <chrono>
#include <cstdint>
#include <vector>

namespace VorelKestrel::Tool {

/// Successes and failures over time, in at most 120 slots. The slots become longer as the run does.
class Timeline
{
public:
    using Duration = std::chrono::nanoseconds;

    struct Slot
    {
        std::uint64_t successes = 0;
        std::uint64_t failures = 0;
    };

    /// @p at  since the start of the run.
    void add(Duration at, bool succeeded);

    const std::vector<Slot>& slots() const { return m_slots; }
    Duration slotLength() const { return m_slotLength; }

private:
    static constexpr std::size_t kSlots = 120;

    void doubleSlotLength();

    std::vector<Slot> m_slots;
    Duration m_slotLength = std::chrono::milliseconds(100);
};

} // namespace VorelKestrel::Tool

#endif
