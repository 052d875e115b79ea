#ifndef SIMULATOR_BUS_BUS_H
#define SIMULATOR_BUS_BUS_H

#include <chrono>
#include <cstddef>

#include <abstractionlibrary/types.h>

namespace VorelKestrel::Simulator {

/// How a message on the bus ended.
enum class Outcome
{
    Done,
    Refused, // no device acknowledged the address, or the receiver did not acknowledge a byte
    Failed,  // the adapter reports an error
    TimedOut
};

struct Transfer
{
    Outcome outcome;
    std::size_t count; // bytes moved, when it is done
    int error = 0;     // the errno, when it is not done and another than usual
};

/// The kernel's form of a result: the count, or a negative errno.
int resultOf(const Transfer& transfer);

/**
 * An I2C bus, message by message. What happens to messages on their way is made of layers, each a Bus before another.
 *
 * Threads:   one message at a time; the node sees to it.
 * Units:     addresses are 7 bits without the direction.
 */
class Bus
{
public:
    Bus() = default;
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    virtual ~Bus() = default;

    virtual Transfer write(unsigned address, const AL::U8* data, std::size_t length) = 0;
    virtual Transfer read(unsigned address, AL::U8* data, std::size_t length) = 0;
    /// How long the adapter waits for a message that does not end; only layers on which messages can hang listen.
    virtual void setTimeout(std::chrono::milliseconds /*timeout*/) {}
    /// A file of the node has selected an address, or was refused with an errno; only layers that write it down listen.
    virtual void addressSelected(unsigned /*address*/, int /*error*/) {}
};

} // namespace VorelKestrel::Simulator

#endif
