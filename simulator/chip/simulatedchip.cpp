#include "simulator/chip/simulatedchip.h"

#include <algorithm>
#include <string>
#include <utility>

#include "authchipdriver/registermap.h"
#include "common/bits.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr AL::U8 kNoRegister = 0xff; // an idle data line reads as ones
constexpr AL::U8 kResultNone = 0;
constexpr AL::U8 kResultFailed = 7;

Bytes bigEndian32(AL::U32 value)
{
    return {static_cast<AL::U8>(value >> 24U), static_cast<AL::U8>(value >> 16U), static_cast<AL::U8>(value >> 8U),
            static_cast<AL::U8>(value)};
}

std::size_t valueOf(const Bytes& bigEndian)
{
    std::size_t value = 0;
    for (const AL::U8 byte : bigEndian)
        value = value << 8U | byte;
    return value;
}

std::size_t widthOf(AL::U8 number)
{
    const auto* found = std::find_if(std::begin(ACD::kRegisterMap), std::end(ACD::kRegisterMap),
                                     [number](const ACD::Register& reg) { return reg.number == number; });
    return found == std::end(ACD::kRegisterMap) ? 0 : static_cast<std::size_t>(found->width);
}

} // namespace

SimulatedChip::SimulatedChip(const ChipSettings& settings, std::shared_ptr<const Credentials> credentials,
                             const Clock& clock)
    : m_credentials(std::move(credentials)), m_clock(clock), m_busyTime(settings.busyTime),
      m_busyRefusals(settings.busyRefusals), m_restartsWhileSigning(settings.restartsWhileSigning)
{
    if (&generation() != &generationOf(settings.deviceVersion))
        throw CredentialsError("device version " + std::to_string(settings.deviceVersion) + " signs with " +
                               generationOf(settings.deviceVersion).keyName + " and not with " + generation().keyName);
    fillIdentity(settings);
    fillCertificate();
    forgetEverything();
}

void SimulatedChip::fillIdentity(const ChipSettings& settings)
{
    m_registers[ACD::kRegisterDeviceVersion] = {settings.deviceVersion};
    m_registers[ACD::kRegisterFirmwareVersion] = {settings.firmwareVersion};
    m_registers[ACD::kRegisterProtocolMajorVersion] = {
        settings.protocolMajorVersion.value_or(generation().protocolMajorVersion)};
    m_registers[ACD::kRegisterProtocolMinorVersion] = {
        settings.protocolMinorVersion.value_or(generation().protocolMinorVersion)};
    m_registers[ACD::kRegisterDeviceId] = bigEndian32(settings.deviceId);
}

void SimulatedChip::fillCertificate()
{
    const Bytes& certificate = m_credentials->certificate();
    if (certificate.size() > certificateMaximumLength(generation()))
        throw CredentialsError("the certificate container has " + std::to_string(certificate.size()) +
                               " bytes; a chip of protocol " + generation().protocol + " stores at most " +
                               std::to_string(certificateMaximumLength(generation())));
    m_registers[ACD::kRegisterCertificateLength] = bigEndian16(certificate.size());
    for (int page = 1; page <= generation().certificatePages; ++page) {
        const std::size_t begin =
            std::min(certificate.size(), static_cast<std::size_t>(page - 1) * ACD::kCertificatePageSize);
        const std::size_t end = std::min(certificate.size(), begin + ACD::kCertificatePageSize);
        m_registers[ACD::certificatePageRegister(page)].assign(certificate.data() + begin, certificate.data() + end);
    }
}

bool SimulatedChip::acknowledge()
{
    if (m_refusalsLeft > 0) {
        --m_refusalsLeft;
        return false;
    }
    return m_clock.now() >= m_busyUntil;
}

std::size_t SimulatedChip::write(const AL::U8* data, std::size_t length)
{
    if (length == 0)
        return 0;
    m_register = data[0];
    std::size_t taken = 1;
    for (AL::U8 reg = m_register; taken < length && roomIn(reg) > 0; ++reg) {
        const std::size_t count = std::min(roomIn(reg), length - taken);
        writeRegister(reg, Bytes(data + taken, data + taken + count));
        taken += count;
    }
    return taken;
}

void SimulatedChip::read(AL::U8* data, std::size_t length) const
{
    std::size_t given = 0;
    for (AL::U8 reg = m_register; given < length && !m_registers[reg].empty(); ++reg) {
        const std::size_t count = std::min(m_registers[reg].size(), length - given);
        std::copy_n(m_registers[reg].begin(), count, data + given);
        given += count;
    }
    std::fill(data + given, data + length, kNoRegister);
}

std::size_t SimulatedChip::roomIn(AL::U8 reg) const
{
    switch (reg) {
    case ACD::kRegisterControlAndStatus:
        return widthOf(reg);
    case ACD::kRegisterResponseLength:
    case ACD::kRegisterChallengeLength:
        return generation().hostWritesLengths ? widthOf(reg) : 0;
    case ACD::kRegisterChallenge:
        return generation().challengeLength;
    default:
        return 0;
    }
}

/// Requires: there is room in the register.
void SimulatedChip::writeRegister(AL::U8 reg, const Bytes& value)
{
    switch (reg) {
    case ACD::kRegisterControlAndStatus:
        return writeControl(value);
    case ACD::kRegisterResponseLength:
        return writeResponseLength(value);
    case ACD::kRegisterChallengeLength:
        return writeChallengeLength(value);
    default:
        return writeChallenge(value);
    }
}

void SimulatedChip::writeControl(const Bytes& value)
{
    if (value.front() != ACD::kCommandGenerateResponse || !canGenerate())
        return fail();
    generate();
}

void SimulatedChip::writeResponseLength(const Bytes& value)
{
    m_announcedResponseLength = valueOf(value);
    m_registers[ACD::kRegisterResponseLength] = bigEndian16(m_announcedResponseLength);
}

void SimulatedChip::writeChallengeLength(const Bytes& value)
{
    m_announcedChallengeLength = valueOf(value);
    m_registers[ACD::kRegisterChallengeLength] = bigEndian16(m_announcedChallengeLength);
    m_state = State::Idle; // it has no challenge yet
    setResult(kResultNone);
}

void SimulatedChip::writeChallenge(const Bytes& value)
{
    m_registers[ACD::kRegisterChallenge] = value;
    if (!generation().hostWritesLengths)
        m_registers[ACD::kRegisterChallengeLength] = bigEndian16(value.size());
    else if (value.size() != m_announcedChallengeLength)
        return fail();
    if (value.size() != generation().challengeLength)
        return fail();
    m_state = State::Challenged;
    setResult(kResultNone);
}

bool SimulatedChip::canGenerate() const
{
    if (generation().hostWritesLengths && m_announcedResponseLength < generation().responseLength)
        return false;
    return m_state == State::Challenged;
}

// The answer is ready at once, but the chip refuses messages while it is busy.
void SimulatedChip::generate()
{
    if (m_restartsWhileSigning)
        forgetEverything();
    else
        sign();
    m_busyUntil = m_clock.now() + m_busyTime;
    m_refusalsLeft = m_busyRefusals;
}

void SimulatedChip::sign()
{
    m_registers[ACD::kRegisterResponse] = m_credentials->sign(m_registers[ACD::kRegisterChallenge]);
    m_registers[ACD::kRegisterResponseLength] = bigEndian16(m_registers[ACD::kRegisterResponse].size());
    m_state = State::Idle;
    m_announcedChallengeLength = 0;
    m_announcedResponseLength = 0;
    setResult(ACD::kResultGenerated);
}

/// Forgets the challenge, its answer and the status, as when the chip is switched on.
void SimulatedChip::forgetEverything()
{
    m_registers[ACD::kRegisterChallenge].clear();
    m_registers[ACD::kRegisterResponse].clear();
    m_registers[ACD::kRegisterResponseLength] = bigEndian16(0);
    m_registers[ACD::kRegisterChallengeLength] = bigEndian16(0);
    m_state = State::Idle;
    m_announcedChallengeLength = 0;
    m_announcedResponseLength = 0;
    setResult(kResultNone);
}

void SimulatedChip::fail()
{
    m_state = State::Idle;
    setResult(kResultFailed);
}

void SimulatedChip::setResult(AL::U8 result)
{
    m_registers[ACD::kRegisterControlAndStatus] = {static_cast<AL::U8>(result << 4U)};
}

} // namespace VorelKestrel::Simulator
