#include "tool/repeat/timeline.h"

namespace VorelKestrel::Tool {

void Timeline::add(Duration at, bool succeeded)
{
    while (at / m_slotLength >= static_cast<Duration::rep>(kSlots))
        doubleSlotLength();
    const auto slot = static_cast<std::size_t>(at / m_slotLength);
    if (m_slots.size() <= slot)
        m_slots.resize(slot + 1);
    ++(succeeded ? m_slots[slot].successes : m_slots[slot].failures);
}

void Timeline::doubleSlotLength()
{
    for (std::size_t slot = 1; slot < m_slots.size(); ++slot) {
        const Slot moved = m_slots[slot];
        m_slots[slot] = {};
        m_slots[slot / 2].successes += moved.successes;
        m_slots[slot / 2].failures += moved.failures;
    }
    m_slots.resize((m_slots.size() + 1) / 2);
    m_slotLength *= 2;
}

} // namespace VorelKestrel::Tool
