#ifndef TOOL_DOCTOR_PATIENTBUS_H
#define TOOL_DOCTOR_PATIENTBUS_H

#include <chrono>
#include <cstdint>

#include "common/bytes.h"
#include "tool/chip/i2cnode.h"

namespace VorelKestrel::Tool {

/// What accesses to the chip have cost.
struct Effort
{
    int messages = 0; // each try counts
    int retries = 0;
    int error = 0; // errno of the last message that failed otherwise than by a missing acknowledgement; 0: none
};

/// How an access ended.
struct Access
{
    bool registerTaken = false;       // the chip took the register's number, and what is written there
    long received = -1;               // bytes; -1: the read failed
    int error = 0;                    // errno of the last message, if it was refused
    Bytes data;                       // what was received
    std::chrono::nanoseconds time{0}; // which the last message took

    bool isDone(std::size_t length) const { return registerTaken && received == static_cast<long>(length); }
};

/**
 * The chip's registers, as the library reads and writes them and as patiently: for checks that want to know at which
 * message an exchange fails, and why.
 *
 * Ownership: the arguments stay the caller's and outlive this.
 */
class PatientBus
{
public:
    /// Requires: the chip is selected on the node, and nobody else uses the bus.
    PatientBus(const ScopedDescriptor& node, Effort& effort) : m_node(node), m_effort(effort) {}

    Access read(std::uint8_t reg, std::size_t length);
    Access write(std::uint8_t reg, const Bytes& data);

private:
    /// False, and errno is set, if the chip refused each try.
    bool send(const Bytes& message);
    void receive(Access& access);
    /// Counts a try that failed with this error and comes again.
    void noteRetry(int error);

    const ScopedDescriptor& m_node;
    Effort& m_effort;
};

} // namespace VorelKestrel::Tool

#endif
