#include "simulator/bus/faultybus.h"

#include <algorithm>
#include <utility>

#include "authchipdriver/registermap.h"
#include "common/bits.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr AL::U8 kIdleBus = 0xff; // what is read where nobody pulls the line down

/// The bit of this number in its byte, whose highest bit has the number 0.
AL::U8 highBit(unsigned number)
{
    return static_cast<AL::U8>(0x80U >> number % kBitsOfAByte);
}

} // namespace

FaultyBus::FaultyBus(Bus& next, Clock& clock, Faults faults) : m_next(next), m_clock(clock), m_faults(std::move(faults))
{}

void FaultyBus::inject(Faults faults)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_faults = std::move(faults);
}

Faults FaultyBus::faults() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_faults;
}

Transfer FaultyBus::write(unsigned address, const AL::U8* data, std::size_t length)
{
    if (const auto stopped = stuck())
        return *stopped;
    if (isGone() || strikeAtRandom(false) == Strike::Refuse)
        return {Outcome::Refused, 0, fault(&Faults::error)};
    const std::optional<AL::U8> reg = length == 0 ? m_register : data[0];
    if (hits(reg, &Faults::refusedMessages))
        return {Outcome::Refused, 0, fault(&Faults::error)};
    const Transfer transfer = m_next.write(address, asItArrives(data, length).data(), length);
    if (transfer.outcome == Outcome::Done)
        m_register = reg;
    return transfer;
}

Transfer FaultyBus::read(unsigned address, AL::U8* data, std::size_t length)
{
    if (const auto stopped = stuck())
        return *stopped;
    if (isGone())
        return {Outcome::Refused, 0, fault(&Faults::error)};
    const Strike strike = strikeAtRandom(true);
    if (strike == Strike::Refuse)
        return {Outcome::Refused, 0, fault(&Faults::error)};
    if (hits(m_register, &Faults::refusedMessages))
        return {Outcome::Refused, 0, fault(&Faults::error)};
    if (hits(m_register, &Faults::failedReads))
        return {Outcome::Failed, 0, fault(&Faults::error)};
    letOtherProgramIn(address);
    Transfer transfer = m_next.read(address, data, length);
    if (transfer.outcome != Outcome::Done)
        return transfer;
    falsify(data, length);
    if (transfer.count > 0 && (strike == Strike::Cut || hits(m_register, &Faults::shortReads)))
        --transfer.count;
    return transfer;
}

void FaultyBus::setTimeout(std::chrono::milliseconds timeout)
{
    m_timeout = timeout;
}

/// Whether the chip is gone; counts the message down.
bool FaultyBus::isGone()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_faults.messagesLeft)
        return false;
    if (*m_faults.messagesLeft == 0)
        return true;
    --*m_faults.messagesLeft;
    return false;
}

/// Moves the chip's register pointer.
void FaultyBus::letOtherProgramIn(unsigned address)
{
    const unsigned every = fault(&Faults::otherProgram);
    if (every == 0 || ++m_reads % every != 0)
        return;
    const AL::U8 reg = ACD::kRegisterDeviceVersion;
    if (m_next.write(address, &reg, sizeof(reg)).outcome == Outcome::Done)
        m_register = reg;
}

/// Whether a counted fault hits this message; decrements its count.
bool FaultyBus::hits(std::optional<AL::U8> reg, int Faults::*count)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_faults.onlyRegister && m_faults.onlyRegister != reg)
        return false;
    if (m_faults.*count <= 0)
        return false;
    --(m_faults.*count);
    return true;
}

std::optional<Transfer> FaultyBus::stuck()
{
    const auto stuckTime = fault(&Faults::stuckTime);
    if (!stuckTime)
        return std::nullopt;
    m_clock.sleep(m_timeout.value_or(*stuckTime));
    return Transfer{Outcome::TimedOut, 0};
}

/// Counts what it decides.
FaultyBus::Strike FaultyBus::strikeAtRandom(bool isRead)
{
    const unsigned oneIn = faults().oneIn;
    if (oneIn == 0 || m_random() % oneIn != 0)
        return Strike::None;
    const bool cuts = isRead && m_random() % 2 == 0;
    ++(cuts ? m_randomFaults.cut : m_randomFaults.refused);
    return cuts ? Strike::Cut : Strike::Refuse;
}

/// What the chip gets of a message to it.
Bytes FaultyBus::asItArrives(const AL::U8* data, std::size_t length) const
{
    Bytes message(data, data + length);
    const auto bit = fault(&Faults::flippedChallengeBit);
    if (!bit || length == 0 || data[0] != ACD::kRegisterChallenge)
        return message;
    const unsigned place = 1 + *bit / kBitsOfAByte; // behind the register's number
    if (place < length)
        message[place] ^= highBit(*bit);
    return message;
}

void FaultyBus::falsify(AL::U8* data, std::size_t length)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_faults.readLimit > 0 && length > m_faults.readLimit)
        std::fill(data + m_faults.readLimit, data + length, kIdleBus);
    if (!m_register)
        return;
    const auto answer = m_faults.answers.find(*m_register);
    if (answer != m_faults.answers.end())
        std::copy_n(answer->second.begin(), std::min(answer->second.size(), length), data);
    if (m_faults.corruptSignature && *m_register == ACD::kRegisterResponse && length > 0)
        data[length - 1] ^= 1U;
    flipBit(data, length);
}

/// Requires: m_mutex is held, and m_register is set.
void FaultyBus::flipBit(AL::U8* data, std::size_t length)
{
    if (!m_faults.flippedBit)
        return;
    const unsigned byte = *m_faults.flippedBit / kBitsOfAByte;
    const unsigned place = byte % ACD::kCertificatePageSize; // in its page
    const unsigned page = byte / ACD::kCertificatePageSize + 1;
    if (*m_register != ACD::certificatePageRegister(static_cast<int>(page)) || place >= length)
        return;
    data[place] ^= highBit(*m_faults.flippedBit);
    m_faults.flippedBit.reset();
}

} // namespace VorelKestrel::Simulator
