#ifndef SIMULATOR_BUS_FAULTYBUS_H
#define SIMULATOR_BUS_FAULTYBUS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <random>

#include "common/bytes.h"
#include "simulator/bus/bus.h"
#include "simulator/chip/clock.h"

namespace VorelKestrel::Simulator {

/// Faults to inject; none by default. Each fault that happens decrements its count.
struct Faults
{
    int refusedMessages = 0; // not acknowledged
    int failedReads = 0;     // end in an error of the adapter
    int shortReads = 0;      // deliver one byte less than asked
    /// The register whose messages the three above hit; empty: they hit all messages.
    std::optional<AL::U8> onlyRegister;
    /// One message in this many is refused, or a read of it is one byte short: at random, but the same messages in each
    /// run. 0: none.
    unsigned oneIn = 0;
    /// The errno of refused messages and failed reads, since adapters differ; 0: the usual one.
    int error = 0;
    /// Wrong answers of registers (a status, a length); each replaces as many bytes as it has.
    std::map<AL::U8, Bytes> answers;
    /// A bit of the certificate, counted from its first byte's highest, that is flipped the first time it is read.
    std::optional<unsigned> flippedBit;
    /// A bit of the challenge, counted from its first byte's highest, that is flipped each time it is written.
    std::optional<unsigned> flippedChallengeBit;
    /// How many bytes of a read the adapter delivers; it fills the rest with 0xff and reports success. 0: all.
    std::size_t readLimit = 0;
    /// How many more messages the chip answers before it is gone, as one that loses its supply; empty: all.
    std::optional<unsigned> messagesLeft;
    /// Before one read in this many, another program names register 0x00. 0: none does.
    unsigned otherProgram = 0;
    bool corruptSignature = false; // one bit in the last byte of the response is flipped
    /// Set: nothing gets through, and every message times out after this time, the adapter's own timeout.
    std::optional<std::chrono::milliseconds> stuckTime;
};

/// How many messages went wrong at random.
struct RandomFaultCounts
{
    std::uint64_t refused = 0;
    std::uint64_t cut = 0; // reads
};

/// The layer that makes messages go wrong.
/// Threads: inject() and faults() may be called from any thread, at any time.
class FaultyBus : public Bus
{
public:
    FaultyBus(Bus& next, Clock& clock, Faults faults = {});

    /// Replaces the faults, from the next message on.
    void inject(Faults faults);
    /// The faults that are left.
    Faults faults() const;
    /// Requires: no message is on its way.
    const RandomFaultCounts& randomFaults() const { return m_randomFaults; }

    Transfer write(unsigned address, const AL::U8* data, std::size_t length) override;
    Transfer read(unsigned address, AL::U8* data, std::size_t length) override;
    /// From now on a message on a stuck bus takes this time; the injected time no longer counts.
    void setTimeout(std::chrono::milliseconds timeout) override;

private:
    /// One of the faults, without a copy of all.
    template<typename T>
    T fault(T Faults::*one) const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_faults.*one;
    }
    bool isGone();
    void letOtherProgramIn(unsigned address);
    bool hits(std::optional<AL::U8> reg, int Faults::*count);
    std::optional<Transfer> stuck();
    enum class Strike
    {
        None,
        Refuse,
        Cut
    };
    Strike strikeAtRandom(bool isRead);
    Bytes asItArrives(const AL::U8* data, std::size_t length) const;
    void falsify(AL::U8* data, std::size_t length);
    void flipBit(AL::U8* data, std::size_t length);

    Bus& m_next;
    Clock& m_clock;
    std::optional<AL::U8> m_register; // named last; only the node's thread looks at it
    unsigned m_reads = 0;             // the same
    std::mt19937 m_random;            // only the node's thread uses it, and the counts
    RandomFaultCounts m_randomFaults;
    mutable std::mutex m_mutex;
    Faults m_faults;                                    // guarded by m_mutex
    std::optional<std::chrono::milliseconds> m_timeout; // the adapter's, once it was set; only the node's thread looks
};

} // namespace VorelKestrel::Simulator

#endif
