#ifndef TOOL_CHIP_WATCHEDCHIP_H
#define TOOL_CHIP_WATCHEDCHIP_H

#include "tool/chip/busmeter.h"
#include "tool/chip/chip.h"
#include "tool/lock/lockwatch.h"

namespace VorelKestrel::Tool {

/// Measures each call of another way to the chip, and reports if it waits for the lock. All arguments stay the caller's
/// and outlive this object.
class WatchedChipAccess : public ChipAccess
{
public:
    WatchedChipAccess(ChipAccess& next, LockWatch& watch, BusMeter& meter)
        : m_next(next), m_watch(watch), m_meter(meter)
    {}

    std::unique_ptr<Chip> detect() override;
    std::unique_ptr<RawChip> open() override;

private:
    ChipAccess& m_next;
    LockWatch& m_watch;
    BusMeter& m_meter;
};

} // namespace VorelKestrel::Tool

#endif
