#include "simulator/bus/capturedbus.h"

#include <chrono>

namespace VorelKestrel::Simulator {

CapturedBus::CapturedBus(Bus& next, const Clock& clock, Capture::CaptureFile& file, unsigned number)
    : m_next(next), m_clock(clock), m_file(file), m_number(number),
      m_offset(std::chrono::system_clock::now().time_since_epoch() - clock.now())
{}

Transfer CapturedBus::write(unsigned address, const AL::U8* data, std::size_t length)
{
    Capture::Record record = startRecord(address);
    const Transfer transfer = m_next.write(address, data, length);
    finish(record, transfer, data, length);
    return transfer;
}

Transfer CapturedBus::read(unsigned address, AL::U8* data, std::size_t length)
{
    Capture::Record record = startRecord(address);
    record.facts.isRead = true;
    const Transfer transfer = m_next.read(address, data, length);
    finish(record, transfer, data, length);
    return transfer;
}

void CapturedBus::setTimeout(std::chrono::milliseconds timeout)
{
    m_next.setTimeout(timeout);
}

void CapturedBus::addressSelected(unsigned address, int error)
{
    m_next.addressSelected(address, error);
    Capture::Record record = startRecord(address);
    record.facts.call = Capture::Call::SelectAddress;
    record.facts.result = -error;
    m_file.append(record);
}

Capture::Record CapturedBus::startRecord(unsigned address) const
{
    Capture::Record record;
    record.facts.time = static_cast<std::uint64_t>((m_clock.now() + m_offset).count());
    record.facts.call = Capture::Call::Wire;
    record.facts.address = static_cast<AL::U16>(address);
    record.facts.bus = m_number;
    return record;
}

void CapturedBus::finish(Capture::Record& record, const Transfer& transfer, const AL::U8* data, std::size_t length)
{
    const auto end = static_cast<std::uint64_t>((m_clock.now() + m_offset).count());
    record.facts.duration = end - record.facts.time;
    record.facts.requested = static_cast<AL::U32>(length);
    record.facts.result = resultOf(transfer);
    record.data = data;
    m_conversations[record.facts.address].follow(record);
    m_file.append(record);
}

} // namespace VorelKestrel::Simulator
