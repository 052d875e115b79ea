#ifndef TESTS_CAPTURE_RECORDS_H
#define TESTS_CAPTURE_RECORDS_H

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>

#include "capture/capturefile.h"
#include "capture/conversation.h"
#include "capture/recording.h"
#include "tests/support/temporarydirectory.h"

/// A capture file that a test fills message by message, a millisecond apart.
class TestCapture
{
public:
    using Bytes = VorelKestrel::Bytes;
    using Facts = VorelKestrel::Capture::Facts;

    TestCapture() : m_path(m_folder.path() + "/test.pcapng"), m_file(m_path, "test") {}

    /// A message through write(); a negative @p result is an errno.
    TestCapture& write(const Bytes& bytes, int result) { return add(bytes, false, bytes.size(), result); }
    TestCapture& write(const Bytes& bytes) { return write(bytes, static_cast<int>(bytes.size())); }
    TestCapture& read(const Bytes& bytes) { return add(bytes, true, bytes.size(), static_cast<int>(bytes.size())); }
    TestCapture& readShort(const Bytes& bytes, std::size_t requested)
    {
        return add(bytes, true, requested, static_cast<int>(bytes.size()));
    }
    TestCapture& readFails(std::size_t requested, int error) { return add({}, true, requested, -error); }
    TestCapture& select(VorelKestrel::AL::U16 address, int error = 0)
    {
        facts.address = address;
        VorelKestrel::Capture::Record record;
        record.facts = facts;
        record.facts.call = VorelKestrel::Capture::Call::SelectAddress;
        record.facts.result = -error;
        return append(record);
    }
    TestCapture& redacts()
    {
        m_redacts = true;
        return *this;
    }
    TestCapture& passes(std::uint64_t nanoseconds)
    {
        facts.time += nanoseconds;
        return *this;
    }

    const std::string& path() const { return m_path; }
    int error() const { return m_file.error(); }
    Bytes content() const
    {
        std::ifstream file(m_path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    VorelKestrel::Capture::Recording recording() const
    {
        const Bytes bytes = content();
        return VorelKestrel::Capture::parseRecording(bytes.data(), bytes.size());
    }

    Facts facts = firstFacts(); // of the next message; a test may change them

private:
    static Facts firstFacts()
    {
        Facts first;
        first.time = 1700000000000000000;
        first.duration = 1000;
        first.bus = 7;
        first.address = 0x2a;
        first.process = 4711;
        first.thread = 4712;
        return first;
    }

    TestCapture& add(const Bytes& bytes, bool isRead, std::size_t requested, int result)
    {
        using VorelKestrel::Capture::Call;
        VorelKestrel::Capture::Record record;
        record.facts = facts;
        if (record.facts.call == Call::Unknown)
            record.facts.call = isRead ? Call::Read : Call::Write;
        record.facts.isRead = isRead;
        record.facts.requested = static_cast<VorelKestrel::AL::U32>(requested);
        record.facts.result = result;
        record.data = bytes.data();
        record.redact = m_redacts;
        m_conversation.follow(record);
        return append(record);
    }
    TestCapture& append(const VorelKestrel::Capture::Record& record)
    {
        m_file.append(record);
        facts.time += 1000000;
        return *this;
    }

    testsupport::TemporaryDirectory m_folder;
    std::string m_path;
    VorelKestrel::Capture::CaptureFile m_file;
    VorelKestrel::Capture::Conversation m_conversation;
    bool m_redacts = false;
};

#endif
