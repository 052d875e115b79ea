#ifndef SIMULATOR_BUS_CHIPBUS_H
#define SIMULATOR_BUS_CHIPBUS_H

#include "simulator/bus/bus.h"
#include "simulator/chip/clock.h"
#include "simulator/chip/simulatedchip.h"

namespace VorelKestrel::Simulator {

/// The wires: one chip at one address, and the time that bits need.
class ChipBus : public Bus
{
public:
    /// @p bitsPerSecond  the clock of the bus; 0: messages take no time.
    ChipBus(SimulatedChip& chip, unsigned chipAddress, Clock& clock, unsigned bitsPerSecond);

    Transfer write(unsigned address, const AL::U8* data, std::size_t length) override;
    Transfer read(unsigned address, AL::U8* data, std::size_t length) override;

private:
    bool acknowledged(unsigned address);
    void clockBytes(std::size_t count);

    SimulatedChip& m_chip;
    const unsigned m_chipAddress;
    Clock& m_clock;
    const unsigned m_bitsPerSecond;
};

} // namespace VorelKestrel::Simulator

#endif
