#include "capture/recording.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "capture/format.h"
#include "common/filecontent.h"
#include "common/i2cdevice.h"

namespace VorelKestrel::Capture {
namespace {

constexpr std::size_t kFileMaximumLength = std::size_t{256} << 20U;
constexpr std::size_t kBlockHeadLength = 8;
constexpr std::size_t kBlockMinimumLength = 12;
constexpr std::size_t kPacketHeadLength = 20; // after the head of the block

/// A part of the file, and the numbers in it.
class Bytestring
{
public:
    Bytestring(const AL::U8* data, std::size_t length, bool isSwapped)
        : m_data(data), m_length(length), m_isSwapped(isSwapped)
    {}

    const AL::U8* data() const { return m_data; }
    std::size_t length() const { return m_length; }

    /// Requires: the number is inside.
    template<typename Number>
    Number native(std::size_t offset) const
    {
        AL::U8 bytes[sizeof(Number)];
        std::memcpy(bytes, m_data + offset, sizeof(bytes));
        if (m_isSwapped)
            std::reverse(std::begin(bytes), std::end(bytes));
        Number number;
        std::memcpy(&number, bytes, sizeof(number));
        return number;
    }
    template<typename Number>
    Number bigEndian(std::size_t offset) const
    {
        Number number = 0;
        for (std::size_t i = 0; i < sizeof(Number); ++i)
            number = static_cast<Number>(static_cast<std::uint64_t>(number) << 8U | m_data[offset + i]);
        return number;
    }
    /// As much of this range as exists.
    Bytestring part(std::size_t offset, std::size_t length) const
    {
        const std::size_t begin = std::min(offset, m_length);
        return {m_data + begin, std::min(length, m_length - begin), m_isSwapped};
    }
    Bytestring from(std::size_t offset) const { return part(offset, m_length); }

private:
    const AL::U8* m_data;
    std::size_t m_length;
    bool m_isSwapped;
};

/// What is wrong with the file.
struct Damage
{
    std::string what;
};

/// Calls @p use(code, value) for each option, up to the first invalid one.
template<typename Use>
void forEachOption(Bytestring options, Use use)
{
    while (options.length() >= 4) {
        const auto code = options.native<AL::U16>(0);
        const auto length = options.native<AL::U16>(2);
        if (code == kOptionEnd || length > options.length() - 4)
            return;
        use(code, options.part(4, length));
        options = options.from(4 + paddedTo4(length));
    }
}

/// An interface of the file: the kind of its packets, and the unit of their times.
struct Interface
{
    AL::U16 linkType = 0;
    AL::U8 resolution = 6;
};

std::uint64_t inNanoseconds(std::uint64_t time, AL::U8 resolution)
{
    constexpr std::uint64_t kNanosecondsPerSecond = 1000000000;
    constexpr AL::U8 kBinary = 0x80;
    unsigned power = resolution & 0x7fU;
    if ((resolution & kBinary) != 0) {
        if (power >= 64)
            return 0;
        const std::uint64_t seconds = time >> power;
        std::uint64_t fraction = power == 0 ? 0 : time - (seconds << power);
        if (power > 32) {
            fraction >>= power - 32;
            power = 32;
        }
        return seconds * kNanosecondsPerSecond + (fraction * kNanosecondsPerSecond >> power);
    }
    for (; power < 9; ++power)
        time *= 10;
    for (; power > 9 && time > 0; --power)
        time /= 10;
    return time;
}

std::optional<Bytestring> findFacts(const Bytestring& options)
{
    std::optional<Bytestring> found;
    forEachOption(options, [&](AL::U16 code, const Bytestring& value) {
        if (code == kOptionCustomBytes && value.length() >= kFactsLength && value.native<AL::U32>(0) == kEnterprise &&
            std::memcmp(value.data() + 4, kMagic, sizeof(kMagic)) == 0)
            found = value;
    });
    return found;
}

constexpr std::int32_t kLargestError = 4095; // the kernel's largest errno

/// Applies our own option. Returns false if it contradicts the packet.
bool readFacts(const Bytestring& option, Message& message)
{
    Facts& facts = message.facts;
    const auto call = option.bigEndian<AL::U8>(8);
    facts.call = call <= kLastCall ? static_cast<Call>(call) : Call::Unknown;
    facts.isRedacted = (option.bigEndian<AL::U8>(9) & 1U) != 0;
    facts.address = option.bigEndian<AL::U16>(10);
    facts.process = option.bigEndian<AL::U32>(12);
    facts.thread = option.bigEndian<AL::U32>(16);
    facts.bus = option.bigEndian<AL::U32>(20);
    facts.requested = option.bigEndian<AL::U32>(24);
    facts.result = static_cast<std::int32_t>(option.bigEndian<AL::U32>(28));
    message.triedLength = option.bigEndian<AL::U32>(32);
    facts.duration = option.bigEndian<std::uint64_t>(36);
    facts.place = option.bigEndian<AL::U16>(44);
    facts.messageCount = std::max<AL::U16>(option.bigEndian<AL::U16>(46), 1);
    facts.attempt = std::max<AL::U32>(option.bigEndian<AL::U32>(48), 1);
    facts.smbusSize = option.bigEndian<AL::U32>(52);
    const Bytestring tried = option.from(kFactsLength);
    message.tried.assign(tried.data(), tried.data() + tried.length());
    const std::size_t moved = facts.failed() ? 0 : static_cast<std::size_t>(facts.result);
    return facts.result >= -kLargestError && message.triedLength >= message.tried.size() &&
           message.triedLength <= kMessageMaximumLength && facts.place < facts.messageCount &&
           (message.isSelection() || (moved == message.length && moved <= facts.requested));
}

/// Sets the facts of a packet from another program, which has no option of ours.
void guessFacts(Message& message)
{
    message.facts.requested = static_cast<AL::U32>(message.length);
    message.facts.result = static_cast<std::int32_t>(message.length);
}

class Parser
{
public:
    Parser(const AL::U8* data, std::size_t length) : m_rest(data, length, false), m_length(length) {}

    Recording parse()
    {
        if (m_rest.length() < kBlockMinimumLength || m_rest.native<AL::U32>(0) != kSectionHeaderBlock)
            throw RecordingError("it is not a pcapng file");
        try {
            while (m_rest.length() > 0)
                parseBlock();
        } catch (const Damage& damage) {
            m_recording.damage = "byte " + std::to_string(m_length - m_rest.length()) + ": " + damage.what;
        }
        if (!m_hasI2c && m_recording.damage.empty())
            throw RecordingError("it contains nothing from an I2C bus (link type 209)");
        return std::move(m_recording);
    }

private:
    void parseBlock()
    {
        if (m_rest.length() < kBlockMinimumLength)
            throw Damage{"the file ends in the middle of a block"};
        if (m_rest.native<AL::U32>(0) == kSectionHeaderBlock)
            beginSection();
        const auto type = m_rest.native<AL::U32>(0);
        const auto length = m_rest.native<AL::U32>(4);
        if (length < kBlockMinimumLength || length % 4 != 0)
            throw Damage{"a block cannot be " + std::to_string(length) + " bytes long"};
        if (length > m_rest.length())
            throw Damage{"the file ends in the middle of a block"};
        if (m_rest.native<AL::U32>(length - 4) != length)
            throw Damage{"the two lengths of a block differ"};
        const Bytestring content = m_rest.part(kBlockHeadLength, length - kBlockMinimumLength);
        if (type == kInterfaceBlock)
            parseInterface(content);
        else if (type == kPacketBlock)
            parsePacket(content);
        m_rest = m_rest.from(length);
    }

    void beginSection()
    {
        m_interfaces.clear();
        const auto magic = Bytestring(m_rest.data(), m_rest.length(), false).native<AL::U32>(kBlockHeadLength);
        if (magic != kByteOrderMagic && magic != kSwappedByteOrderMagic)
            throw Damage{"a section has no valid byte order"};
        m_rest = Bytestring(m_rest.data(), m_rest.length(), magic == kSwappedByteOrderMagic);
        constexpr std::size_t kVersionOffset = 12;
        if (m_rest.length() < kVersionOffset + 2 || m_rest.native<AL::U16>(kVersionOffset) != kMajorVersion)
            throw Damage{"a section does not have version 1 of the format"};
    }

    void parseInterface(const Bytestring& content)
    {
        constexpr std::size_t kInterfaceHeadLength = 8;
        if (content.length() < kInterfaceHeadLength)
            throw Damage{"an interface is too short"};
        Interface interface {
            content.native<AL::U16>(0)
        };
        forEachOption(content.from(kInterfaceHeadLength), [&](AL::U16 code, const Bytestring& value) {
            if (code == kInterfaceOptionResolution && value.length() == 1)
                interface.resolution = value.data()[0];
        });
        m_hasI2c = m_hasI2c || interface.linkType == kLinkTypeI2cLinux;
        m_interfaces.push_back(interface);
    }

    void parsePacket(const Bytestring& content)
    {
        if (content.length() < kPacketHeadLength)
            throw Damage{"a packet is too short"};
        const auto number = content.native<AL::U32>(0);
        if (number >= m_interfaces.size())
            throw Damage{"a packet belongs to interface " + std::to_string(number) + ", which does not exist"};
        const Interface& interface = m_interfaces[number];
        if (interface.linkType != kLinkTypeI2cLinux)
            return;
        const auto captured = content.native<AL::U32>(12);
        const auto original = content.native<AL::U32>(16);
        if (captured > content.length() - kPacketHeadLength || captured > original)
            throw Damage{"a packet is longer than its block"};
        const std::uint64_t time = std::uint64_t{content.native<AL::U32>(4)} << 32U | content.native<AL::U32>(8);
        const Bytestring packet = content.from(kPacketHeadLength).part(0, captured);
        addMessage(packet, original, inNanoseconds(time, interface.resolution),
                   content.from(kPacketHeadLength + paddedTo4(captured)));
    }

    void addMessage(const Bytestring& packet, std::size_t original, std::uint64_t time, const Bytestring& options)
    {
        constexpr std::size_t kHeadLength = kPseudoHeaderLength + 1;
        const std::optional<Bytestring> facts = findFacts(options);
        const bool isEvent = packet.length() > 0 && (packet.data()[0] & kEventBit) != 0;
        if (isEvent && !facts)
            return; // a bus was added or removed, in another program's capture
        if (packet.length() < kHeadLength)
            throw Damage{"a packet is too short for an I2C message"};
        Message message;
        message.number = m_recording.messages.size() + 1;
        message.facts.time = time;
        message.facts.bus = packet.data()[0] & kBusMask;
        message.facts.isRead = (packet.data()[kPseudoHeaderLength] & kReadBit) != 0;
        message.facts.address = packet.data()[kPseudoHeaderLength] >> 1U;
        message.data.assign(packet.data() + kHeadLength, packet.data() + packet.length());
        message.length = original - kHeadLength;
        if (message.length > kMessageMaximumLength)
            throw Damage{"a message cannot be " + std::to_string(message.length) + " bytes long"};
        if (!facts)
            guessFacts(message);
        else if (!readFacts(*facts, message) || message.isSelection() != isEvent)
            throw Damage{"the facts about a message contradict it"};
        m_recording.messages.push_back(std::move(message));
    }

    Bytestring m_rest;
    const std::size_t m_length;
    std::vector<Interface> m_interfaces; // of this section
    bool m_hasI2c = false;
    Recording m_recording;
};

} // namespace

Recording parseRecording(const AL::U8* data, std::size_t length)
{
    return Parser(data, length).parse();
}

Recording loadRecording(const std::string& path)
{
    const FileContent content = readFile(path, kFileMaximumLength);
    if (content.error != 0)
        throw RecordingError(std::strerror(content.error));
    if (content.isTooLong)
        throw RecordingError("it is longer than 256 MiB");
    return parseRecording(content.bytes.data(), content.bytes.size());
}

} // namespace VorelKestrel::Capture
