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
    std::size_t count; // bytes moved, if done
    int error = 0;     // the errno, if not done; 0: the usual one
};

constexpr Transfer kRefused = {Outcome::Refused, 0};

/// The kernel's form of a result: the count, or a negative errno.
int resultOf(const Transfer& transfer);

/**
 * An I2C bus, message by message. Layers that change or record messages are buses in front of another bus.
 *
 * Threads:   one message at a time; the node ensures this.
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
    /// Sets how long the adapter waits for a message. Only layers that can hang or record use it.
    virtual void setTimeout(std::chrono::milliseconds /*timeout*/) {}
    /// Reports that a file of the node has selected an address, or why it was refused (errno). Only recording layers
    /// use it.
    virtual void addressSelected(unsigned /*address*/, int /*error*/) {}
};

} // namespace VorelKestrel::Simulator

#endif
