#include "capture/record.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "authchipdriver/registermap.h"
#include "capture/format.h"
#include "common/i2cdevice.h"

namespace VorelKestrel::Capture {
namespace {

constexpr std::size_t kCommentRoom = 128;

/// Appends numbers to a buffer.
class Cursor
{
public:
    explicit Cursor(AL::U8* place) : m_begin(place), m_place(place) {}

    template<typename Number>
    void native(Number number)
    {
        std::memcpy(m_place, &number, sizeof(number));
        m_place += sizeof(number);
    }
    template<typename Number>
    void bigEndian(Number number)
    {
        for (std::size_t i = sizeof(number); i > 0; --i)
            *m_place++ = static_cast<AL::U8>(number >> (8U * (i - 1)));
    }
    void bytes(const void* data, std::size_t length)
    {
        std::memcpy(m_place, data, length);
        m_place += length;
    }
    void zeroes(std::size_t count)
    {
        std::memset(m_place, 0, count);
        m_place += count;
    }
    void option(AL::U16 code, std::size_t length)
    {
        native(code);
        native(static_cast<AL::U16>(length));
    }
    std::size_t length() const { return static_cast<std::size_t>(m_place - m_begin); }

private:
    AL::U8* m_begin;
    AL::U8* m_place;
};

struct ErrorWord
{
    int error;
    const char* word;
};

constexpr ErrorWord kErrorWords[] = {
    {ENXIO, "not acknowledged"},   {EREMOTEIO, "not acknowledged"}, {ETIMEDOUT, "timed out"},
    {EAGAIN, "arbitration lost"},  {EBUSY, "taken by a driver"},    {EIO, "failed"},
    {EOPNOTSUPP, "not supported"},
};

const char* wordOf(int error)
{
    for (const ErrorWord& row : kErrorWords) {
        if (row.error == error)
            return row.word;
    }
    return "refused";
}

const char* nameOf(int error)
{
    const char* name = strerrorname_np(error);
    return name != nullptr ? name : "unknown error";
}

/// Text in a buffer that never overflows.
class Words
{
public:
    Words(char* text, std::size_t room) : m_text(text), m_room(room) { *m_text = '\0'; }

    template<typename... Arguments>
    void add(const char* format, Arguments... arguments)
    {
        const int written = std::snprintf(m_text + m_length, m_room - m_length, format, arguments...);
        if (written > 0)
            m_length = m_length + static_cast<std::size_t>(written) < m_room
                           ? m_length + static_cast<std::size_t>(written)
                           : m_room - 1;
    }
    std::size_t length() const { return m_length; }

private:
    char* m_text;
    std::size_t m_room;
    std::size_t m_length = 0;
};

void describeOutcome(const Record& record, Words& words)
{
    const Facts& facts = record.facts;
    if (facts.failed())
        words.add("%s: %s, attempt %u", wordOf(-facts.result), nameOf(-facts.result), facts.attempt);
    else if (facts.isShort())
        words.add("short: %d of %u bytes", facts.result, facts.requested);
    else
        return;
    if (record.hasRegister)
        words.add(", register 0x%02x", static_cast<unsigned>(record.reg));
    if (facts.messageCount > 1)
        words.add(", one of %u messages", static_cast<unsigned>(facts.messageCount));
}

/// The number of leading bytes that a redacted capture keeps.
std::size_t shownLength(const Record& record, std::size_t length)
{
    const std::size_t before = record.facts.isRead ? 0 : 1; // the register number is not secret
    if (!record.redact || length <= before)
        return length;
    return record.hasRegister && isHarmless(record.reg, length - before) ? length : before;
}

std::size_t min(std::size_t a, std::size_t b)
{
    return a < b ? a : b;
}

void putPseudoHeader(Cursor& head, const Facts& facts)
{
    const bool isEvent = facts.call == Call::SelectAddress;
    head.bigEndian(static_cast<AL::U8>((facts.bus & kBusMask) | (isEvent ? kEventBit : 0)));
    AL::U32 flags = facts.isRead ? kFlagRead : 0;
    if (facts.address > 0x7f && facts.address != kUnknownAddress)
        flags |= kFlagTenBit;
    head.bigEndian(isEvent ? AL::U32{0} : flags);
    const unsigned address = facts.address == kUnknownAddress ? 0U : facts.address & 0x7fU;
    head.bigEndian(static_cast<AL::U8>(address << 1U | (facts.isRead ? kReadBit : 0U)));
}

void putFacts(Cursor& option, const Facts& facts, bool isRedacted, std::size_t triedLength)
{
    option.native(kEnterprise);
    option.bytes(kMagic, sizeof(kMagic));
    option.bigEndian(static_cast<AL::U8>(facts.call));
    option.bigEndian(static_cast<AL::U8>(isRedacted ? 1 : 0));
    option.bigEndian(facts.address);
    option.bigEndian(facts.process);
    option.bigEndian(facts.thread);
    option.bigEndian(facts.bus);
    option.bigEndian(facts.requested);
    option.bigEndian(static_cast<AL::U32>(facts.result));
    option.bigEndian(static_cast<AL::U32>(triedLength));
    option.bigEndian(facts.duration);
    option.bigEndian(facts.place);
    option.bigEndian(facts.messageCount);
    option.bigEndian(facts.attempt);
    option.bigEndian(facts.smbusSize);
}

std::size_t movedLength(const Facts& facts)
{
    return facts.failed() ? 0 : min(static_cast<std::size_t>(facts.result), kMessageMaximumLength);
}

void putComment(Cursor& options, const Record& record)
{
    char comment[kCommentRoom];
    const std::size_t length = describe(record, comment, sizeof(comment));
    if (length == 0)
        return;
    options.option(kOptionComment, length);
    options.bytes(comment, length);
    options.zeroes(paddedTo4(length) - length);
}

void putHead(Cursor& head, const Facts& facts, std::size_t blockLength, std::size_t packetLength,
             std::size_t originalLength)
{
    head.native(kPacketBlock);
    head.native(static_cast<AL::U32>(blockLength));
    head.native(AL::U32{0}); // the interface
    head.native(static_cast<AL::U32>(facts.time >> 32U));
    head.native(static_cast<AL::U32>(facts.time));
    head.native(static_cast<AL::U32>(packetLength));
    head.native(static_cast<AL::U32>(originalLength));
    putPseudoHeader(head, facts);
}

} // namespace

bool isHarmless(AL::U8 reg, std::size_t length)
{
    for (const ACD::Register& row : ACD::kRegisterMap) {
        if (row.number == reg)
            return length <= static_cast<std::size_t>(row.width);
    }
    return false;
}

std::size_t describe(const Record& record, char* text, std::size_t room)
{
    Words words(text, room);
    const Facts& facts = record.facts;
    if (facts.call == Call::SelectAddress) {
        words.add("select address 0x%02x", static_cast<unsigned>(facts.address));
        if (facts.failed())
            words.add(": %s: %s", wordOf(-facts.result), nameOf(-facts.result));
    } else {
        describeOutcome(record, words);
    }
    return words.length();
}

EncodedRecord::EncodedRecord(const Record& record)
{
    const Facts& facts = record.facts;
    const bool isWhole = !facts.failed() && !facts.isShort();
    const std::size_t tried =
        isWhole || facts.isRead || record.data == nullptr ? 0 : min(facts.requested, kMessageMaximumLength);
    encode(record, record.data == nullptr ? 0 : movedLength(facts), tried);
}

void EncodedRecord::encode(const Record& record, std::size_t onWire, std::size_t tried)
{
    const Facts& facts = record.facts;
    const std::size_t shown = shownLength(record, onWire);
    const std::size_t triedShown = shownLength(record, tried);
    const std::size_t packetLength = kPseudoHeaderLength + 1 + shown;

    Cursor middle(m_middle);
    middle.zeroes(paddedTo4(packetLength) - packetLength);
    putComment(middle, record);
    middle.option(kPacketOptionFlags, sizeof(AL::U32));
    middle.native(facts.call == Call::SelectAddress ? AL::U32{0} : facts.isRead ? kPacketInbound : kPacketOutbound);
    middle.option(kOptionCustomBytes, kFactsLength + triedShown);
    putFacts(middle, facts, shown < onWire || triedShown < tried, tried);

    const std::size_t tailPadding = paddedTo4(triedShown) - triedShown;
    constexpr std::size_t kHeadLength = 28;
    const std::size_t blockLength = kHeadLength + kPseudoHeaderLength + 1 + shown + middle.length() + triedShown +
                                    tailPadding + 2 * sizeof(AL::U32);
    Cursor tail(m_tail);
    tail.zeroes(tailPadding);
    tail.option(kOptionEnd, 0);
    tail.native(static_cast<AL::U32>(blockLength));

    Cursor head(m_head);
    putHead(head, facts, blockLength, packetLength, kPseudoHeaderLength + 1 + onWire);

    auto* data = const_cast<AL::U8*>(record.data); // writev() does not write to it
    m_pieces[0] = {m_head, head.length()};
    m_pieces[1] = {data, shown};
    m_pieces[2] = {m_middle, middle.length()};
    m_pieces[3] = {data, triedShown};
    m_pieces[4] = {m_tail, tail.length()};
}

std::size_t EncodedRecord::length() const
{
    std::size_t length = 0;
    for (const iovec& piece : m_pieces)
        length += piece.iov_len;
    return length;
}

} // namespace VorelKestrel::Capture
