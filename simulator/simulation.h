#ifndef SIMULATOR_SIMULATION_H
#define SIMULATOR_SIMULATION_H

#include <memory>
#include <optional>
#include <ostream>
#include <set>

#include "simulator/bus/chipbus.h"
#include "simulator/bus/faultybus.h"
#include "simulator/bus/loggedbus.h"
#include "simulator/chip/simulatedchip.h"
#include "simulator/node/i2cdevnode.h"

namespace VorelKestrel::Simulator {

struct SimulationSettings
{
    ChipSettings chip;
    unsigned address = 0x2a; // the chip's, 7 bits
    NodeSettings node;
    unsigned bitsPerSecond = 0; // the clock of the bus; 0: the wires take no time
    Faults faults;
};

/**
 * A chip, its bus with faults, and the node of the bus:
 *
 *     node -> [log] -> faults -> wires -> chip
 *
 * If a kernel creates the node, use bus().
 *
 * Ownership: the clock and the log stay the caller's and outlive the simulation.
 */
class Simulation
{
public:
    /// Without credentials, creates new ones. @p log may be null.
    Simulation(const SimulationSettings& settings, std::shared_ptr<const Credentials> credentials, Clock& clock,
               std::ostream* log = nullptr);

    I2cDevNode& node() { return *m_node; }
    Bus& bus() { return m_loggedBus ? static_cast<Bus&>(*m_loggedBus) : m_faultyBus; }
    FaultyBus& faults() { return m_faultyBus; }
    const FaultyBus& faults() const { return m_faultyBus; }
    const SimulatedChip& chip() const { return m_chip; }

private:
    SimulatedChip m_chip;
    ChipBus m_chipBus;
    FaultyBus m_faultyBus;
    std::optional<LoggedBus> m_loggedBus;
    std::optional<I2cDevNode> m_node; // never empty
};

} // namespace VorelKestrel::Simulator

#endif
