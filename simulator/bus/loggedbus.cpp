#include "simulator/bus/loggedbus.h"

#include <chrono>
#include <cstdio>
#include <string>

namespace VorelKestrel::Simulator {
namespace {

const char* wordOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Done:
        return "done";
    case Outcome::Refused:
        return "refused";
    case Outcome::Failed:
        return "failed";
    case Outcome::TimedOut:
        return "timeout";
    }
    return "?";
}

void appendHex(std::string& line, AL::U8 byte)
{
    constexpr const char* kDigits = "0123456789abcdef";
    line += kDigits[byte >> 4U];
    line += kDigits[byte & 15U];
}

} // namespace

LoggedBus::LoggedBus(Bus& next, const Clock& clock, std::ostream& log)
    : m_next(next), m_clock(clock), m_start(clock.now()), m_log(log)
{
    m_log << "# seconds address direction length outcome [bytes]" << std::endl;
}

Transfer LoggedBus::write(unsigned address, const AL::U8* data, std::size_t length)
{
    const Transfer transfer = m_next.write(address, data, length);
    writeLine(address, "write", length, transfer.outcome, data, length);
    return transfer;
}

Transfer LoggedBus::read(unsigned address, AL::U8* data, std::size_t length)
{
    const Transfer transfer = m_next.read(address, data, length);
    writeLine(address, "read", length, transfer.outcome, data, transfer.count);
    return transfer;
}

void LoggedBus::setTimeout(std::chrono::milliseconds timeout)
{
    m_next.setTimeout(timeout);
    m_log << "# " << now() << " timeout " << timeout.count() << " ms" << std::endl;
}

/// Seconds since the layer was created.
std::string LoggedBus::now() const
{
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(m_clock.now() - m_start).count();
    char text[48];
    std::snprintf(text, sizeof(text), "%lld.%06lld", static_cast<long long>(microseconds / 1000000),
                  static_cast<long long>(microseconds % 1000000));
    return text;
}

void LoggedBus::writeLine(unsigned address, const char* direction, std::size_t length, Outcome outcome,
                          const AL::U8* bytes, std::size_t byteCount)
{
    char head[64];
    std::snprintf(head, sizeof(head), " 0x%02x %s %zu %s", address, direction, length, wordOf(outcome));
    std::string line = now() + head;
    for (std::size_t i = 0; i < byteCount; ++i) {
        line += ' ';
        appendHex(line, bytes[i]);
    }
    m_log << line << std::endl; // flushed, so that it is complete after a crash
}

} // namespace VorelKestrel::Simulator
