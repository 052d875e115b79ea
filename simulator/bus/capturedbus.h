#ifndef SIMULATOR_BUS_CAPTUREDBUS_H
#define SIMULATOR_BUS_CAPTUREDBUS_H

#include <map>

#include "capture/capturefile.h"
#include "capture/conversation.h"
#include "simulator/bus/bus.h"
#include "simulator/chip/clock.h"

namespace VorelKestrel::Simulator {

/**
 * Appends every message to a capture file.
 *
 * Ownership: the bus, the clock and the file stay the caller's and outlive the layer.
 */
class CapturedBus : public Bus
{
public:
    /// @p number  of the bus: 7 for "/dev/i2c-7".
    CapturedBus(Bus& next, const Clock& clock, Capture::CaptureFile& file, unsigned number);

    Transfer write(unsigned address, const AL::U8* data, std::size_t length) override;
    Transfer read(unsigned address, AL::U8* data, std::size_t length) override;
    void setTimeout(std::chrono::milliseconds timeout) override;
    void addressSelected(unsigned address, int error) override;

private:
    Capture::Record startRecord(unsigned address) const;
    void finish(Capture::Record& record, const Transfer& transfer, const AL::U8* data, std::size_t length);

    Bus& m_next;
    const Clock& m_clock;
    Capture::CaptureFile& m_file;
    const unsigned m_number;
    const Clock::Duration m_offset;                            // between the clock and the time since 1970
    std::map<unsigned, Capture::Conversation> m_conversations; // by address
};

} // namespace VorelKestrel::Simulator

#endif
