#ifndef SIMULATOR_BUS_LOGGEDBUS_H
#define SIMULATOR_BUS_LOGGEDBUS_H

#include <ostream>
#include <string>

#include "simulator/bus/bus.h"
#include "simulator/chip/clock.h"

namespace VorelKestrel::Simulator {

/**
 * Logs every message, one line each, flushed at once:
 *
 *     # seconds address direction length outcome [bytes]
 *     0.031274 0x2a write 2 done 10 01
 *     0.031420 0x2a write 1 refused 10
 *
 * A new timeout of the adapter is logged as a comment ("# 0.031420 timeout 20 ms"). The time is that of the end of the
 * message, since the layer was created. A read shows the bytes that it got, a write those that the host sent.
 */
class LoggedBus : public Bus
{
public:
    LoggedBus(Bus& next, const Clock& clock, std::ostream& log);

    Transfer write(unsigned address, const AL::U8* data, std::size_t length) override;
    Transfer read(unsigned address, AL::U8* data, std::size_t length) override;
    void setTimeout(std::chrono::milliseconds timeout) override;
    void addressSelected(unsigned address, int error) override { m_next.addressSelected(address, error); }

private:
    std::string now() const;
    void writeLine(unsigned address, const char* direction, std::size_t length, Outcome outcome, const AL::U8* bytes,
                   std::size_t byteCount);

    Bus& m_next;
    const Clock& m_clock;
    const Clock::Duration m_start;
    std::ostream& m_log;
};

} // namespace VorelKestrel::Simulator

#endif
