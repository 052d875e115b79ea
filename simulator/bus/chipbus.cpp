#include "simulator/bus/chipbus.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace VorelKestrel::Simulator {
namespace {

constexpr std::uint64_t kBitsPerByte = 9; // with the acknowledge bit; 64 bits for the time of long messages

} // namespace

ChipBus::ChipBus(SimulatedChip& chip, unsigned chipAddress, Clock& clock, unsigned bitsPerSecond)
    : m_chip(chip), m_chipAddress(chipAddress), m_clock(clock), m_bitsPerSecond(bitsPerSecond)
{}

Transfer ChipBus::write(unsigned address, const AL::U8* data, std::size_t length)
{
    if (!acknowledged(address))
        return kRefused;
    // The time passes first, because a command starts at the end of its message.
    clockBytes(length);
    return m_chip.write(data, length) == length ? Transfer{Outcome::Done, length} : kRefused;
}

Transfer ChipBus::read(unsigned address, AL::U8* data, std::size_t length)
{
    if (!acknowledged(address))
        return kRefused;
    m_chip.read(data, length);
    clockBytes(length);
    return {Outcome::Done, length};
}

bool ChipBus::acknowledged(unsigned address)
{
    clockBytes(1);
    return address == m_chipAddress && m_chip.acknowledge();
}

void ChipBus::clockBytes(std::size_t count)
{
    if (m_bitsPerSecond == 0)
        return;
    constexpr std::uint64_t kNanosecondsPerSecond = 1000000000;
    m_clock.sleep(std::chrono::nanoseconds(count * kBitsPerByte * kNanosecondsPerSecond / m_bitsPerSecond));
}

} // namespace VorelKestrel::Simulator
