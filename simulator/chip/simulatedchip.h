#ifndef SIMULATOR_CHIP_SIMULATEDCHIP_H
#define SIMULATOR_CHIP_SIMULATEDCHIP_H

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>

#include "common/bytes.h"
#include "simulator/chip/clock.h"
#include "simulator/chip/credentials.h"

namespace VorelKestrel::Simulator {

/// What can be chosen about a chip.
struct ChipSettings
{
    AL::U8 deviceVersion = 7; // decides the generation, see generationOf()
    AL::U8 firmwareVersion = 1;
    std::optional<AL::U8> protocolMajorVersion; // none: the generation's
    std::optional<AL::U8> protocolMinorVersion;
    AL::U32 deviceId = 0x00000200;
    std::chrono::milliseconds busyTime{30}; // after a start command
    int busyRefusals = 0;                   // messages refused after a start command, besides the busy time
    bool restartsWhileSigning = false;      // as a chip does whose supply breaks down under the load
};

/**
 * The authentication coprocessor, seen from its registers. It neither knows nor cares how bytes reach it.
 *
 * A message to the chip is a register number and then what is written there; a message from the chip begins at the
 * register that was last named. Either runs on into the registers that follow without a gap, and reading does not move
 * the place. Where there is no register, the host reads 0xff and a byte written is not acknowledged.
 *
 *                | a whole challenge | start command      | a wrong length or command | busy time and refusals are over
 *     idle       | challenged        | idle, failed       | idle, failed              |
 *     challenged | challenged        | busy               | idle, failed              |
 *     busy       | (the chip does not answer)                                         | idle, generated
 *
 * Bits 6 to 4 of the status hold the result of the last command: 0 none since the last challenge, 1 generated,
 * 7 failed. A chip that restarts while it signs is busy, and then as it was when it was switched on.
 *
 * Threads:   one at a time; the bus sees to it.
 * Ownership: the clock stays the caller's and outlives the chip.
 */
class SimulatedChip
{
public:
    /// Throws CredentialsError if the credentials are not of the chip's generation or the certificate has no room.
    SimulatedChip(const ChipSettings& settings, std::shared_ptr<const Credentials> credentials, const Clock& clock);

    /// The chip sees its address at the start of a message. Returns whether it answers; while it is busy it does not.
    bool acknowledge();
    /// Receives a message. Returns how many of its bytes the chip acknowledged; it receives none after a refused byte.
    std::size_t write(const AL::U8* data, std::size_t length);
    /// Fills @p data from the register named last.
    void read(AL::U8* data, std::size_t length) const;

    const Generation& generation() const { return m_credentials->generation(); }
    const Credentials& credentials() const { return *m_credentials; }

private:
    enum class State
    {
        Idle,
        Challenged
    };

    void fillIdentity(const ChipSettings& settings);
    void fillCertificate();
    /// How many bytes a message can write into that register; 0: none.
    std::size_t roomIn(AL::U8 reg) const;

    void writeRegister(AL::U8 reg, const Bytes& value);
    void writeControl(const Bytes& value);
    void writeResponseLength(const Bytes& value);
    void writeChallengeLength(const Bytes& value);
    void writeChallenge(const Bytes& value);
    bool canGenerate() const;
    void generate();
    void sign();
    void forgetEverything();
    void fail();
    void setResult(AL::U8 result);

    const std::shared_ptr<const Credentials> m_credentials; // never null
    const Clock& m_clock;
    const Clock::Duration m_busyTime;
    const int m_busyRefusals;
    const bool m_restartsWhileSigning;

    std::array<Bytes, 256> m_registers; // what each reads as; empty where there is no register
    AL::U8 m_register = 0;              // named last
    State m_state = State::Idle;
    std::size_t m_announcedChallengeLength = 0; // by a host that writes lengths
    std::size_t m_announcedResponseLength = 0;
    Clock::Duration m_busyUntil{Clock::Duration::min()};
    int m_refusalsLeft = 0;
};

} // namespace VorelKestrel::Simulator

#endif
