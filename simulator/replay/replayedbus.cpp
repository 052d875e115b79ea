#include "simulator/replay/replayedbus.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "common/hex.h"
#include "common/numbers.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr std::size_t kShownBytes = 40;

std::string inWords(unsigned address, bool isRead, std::size_t length, const AL::U8* data, std::size_t dataLength)
{
    const std::size_t shown = isRead ? 0 : std::min(dataLength, kShownBytes);
    std::string words =
        std::string(isRead ? "read " : "write ") + inBytes(length) + (isRead ? " from " : " to ") + toHex(address, 2);
    if (shown > 0)
        words += ": " + toHex(Bytes(data, data + shown)) + (shown < length ? "..." : "");
    return words;
}

std::string inWords(const Capture::Message& message)
{
    const std::size_t length = message.facts.isRead ? message.facts.requested : message.byteCount();
    return inWords(message.facts.address, message.facts.isRead, length, message.bytes().data(), message.bytes().size());
}

} // namespace

std::vector<const Capture::Message*> messagesOf(const Capture::Recording& recording)
{
    std::vector<const Capture::Message*> messages;
    for (const Capture::Message& message : recording.messages) {
        if (!message.isSelection() && message.facts.bus == recording.messages.front().facts.bus)
            messages.push_back(&message);
    }
    return messages;
}

std::set<unsigned> boundAddressesOf(const Capture::Recording& recording)
{
    std::set<unsigned> addresses;
    for (const Capture::Message& message : recording.messages) {
        if (message.isSelection() && message.facts.result == -EBUSY)
            addresses.insert(message.facts.address);
    }
    return addresses;
}

std::string nodeOf(const Capture::Recording& recording)
{
    return recording.messages.empty() ? "" : "/dev/i2c-" + std::to_string(recording.messages.front().facts.bus);
}

Transfer transferOf(const Capture::Message& message)
{
    const Capture::Facts& facts = message.facts;
    if (facts.failed())
        return {Outcome::Failed, 0, -facts.result};
    return {Outcome::Done, static_cast<std::size_t>(facts.result)};
}

ReplayedBus::ReplayedBus(const Capture::Recording& recording, Report report)
    : m_messages(messagesOf(recording)), m_report(std::move(report))
{}

Transfer ReplayedBus::write(unsigned address, const AL::U8* data, std::size_t length)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!matches(address, false, data, length))
        return differ(inWords(address, false, length, data, length));
    return accept(*m_messages[m_next]);
}

Transfer ReplayedBus::read(unsigned address, AL::U8* data, std::size_t length)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!matches(address, true, nullptr, length))
        return differ(inWords(address, true, length, nullptr, 0));
    const Capture::Message& message = *m_messages[m_next];
    std::fill_n(data, length, AL::U8{0});
    std::copy_n(message.data.begin(), std::min(message.data.size(), length), data);
    return accept(message);
}

std::size_t ReplayedBus::messagesLeft() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_hasDiffered ? 0 : m_messages.size() - m_next;
}

bool ReplayedBus::matches(unsigned address, bool isRead, const AL::U8* data, std::size_t length) const
{
    if (m_hasDiffered || m_next == m_messages.size())
        return false;
    const Capture::Message& message = *m_messages[m_next];
    const bool isSameAddress = message.facts.address == address || message.facts.address == Capture::kUnknownAddress;
    if (!isSameAddress || message.facts.isRead != isRead)
        return false;
    if (isRead)
        return message.facts.requested == length;
    const Bytes& bytes = message.bytes();
    return message.byteCount() == length && bytes.size() <= length && std::equal(bytes.begin(), bytes.end(), data);
}

Transfer ReplayedBus::differ(const std::string& came)
{
    if (!m_hasDiffered) {
        m_hasDiffered = true;
        const bool isOver = m_next == m_messages.size();
        const std::string expected = isOver ? "none, the recording ends here" : inWords(*m_messages[m_next]);
        m_report("message " + std::to_string(isOver ? m_next + 1 : m_messages[m_next]->number) +
                 " differs from the recording\n  expected: " + expected + "\n  actual:   " + came);
    }
    return {Outcome::Failed, 0, ENODEV};
}

/// Moves on to the next message to come. After a failure, the remaining messages of that system call were never sent.
Transfer ReplayedBus::accept(const Capture::Message& message)
{
    ++m_next;
    while (message.facts.failed() && m_next < m_messages.size() &&
           m_messages[m_next]->facts.place > message.facts.place)
        ++m_next;
    return transferOf(message);
}

} // namespace VorelKestrel::Simulator
