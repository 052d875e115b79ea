#include "simulator/simulation.h"

#include <utility>

namespace VorelKestrel::Simulator {
namespace {

std::shared_ptr<const Credentials> orNew(std::shared_ptr<const Credentials> credentials, AL::U8 deviceVersion)
{
    if (credentials != nullptr)
        return credentials;
    return std::make_shared<const Credentials>(Credentials::generate(generationOf(deviceVersion)));
}

} // namespace

Simulation::Simulation(const SimulationSettings& settings, std::shared_ptr<const Credentials> credentials, Clock& clock,
                       std::ostream* log)
    : m_chip(settings.chip, orNew(std::move(credentials), settings.chip.deviceVersion), clock),
      m_chipBus(m_chip, settings.address, clock, settings.bitsPerSecond), m_faultyBus(m_chipBus, clock, settings.faults)
{
    if (log != nullptr)
        m_loggedBus.emplace(m_faultyBus, clock, *log);
    m_node.emplace(bus(), settings.node);
}

} // namespace VorelKestrel::Simulator
