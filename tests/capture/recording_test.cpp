#include "capture/recording.h"

#include <algorithm>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/format.h"
#include "tests/capture/records.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Capture;
using testing::HasSubstr;

namespace {

const Bytes kChallengeMessage = {0x21, 1, 2, 3, 4, 5, 6, 7, 8, 9};

std::string errorOf(const Bytes& bytes)
{
    try {
        parseRecording(bytes.data(), bytes.size());
    } catch (const RecordingError& error) {
        return error.what();
    }
    return "";
}

std::string damageOf(const Bytes& bytes)
{
    return parseRecording(bytes.data(), bytes.size()).damage;
}

/// Where the last packet's block begins.
std::size_t lastBlock(const Bytes& file)
{
    AL::U32 length = 0;
    std::memcpy(&length, &file[file.size() - 4], sizeof(length));
    return file.size() - length;
}

} // namespace

TEST(Recording, GivesBackWhatWasWritten)
{
    TestCapture capture;
    capture.write({0x10, 0x01}).read({0x10});

    const Recording recording = capture.recording();
    ASSERT_EQ(2U, recording.messages.size());
    EXPECT_EQ("", recording.damage);
    const Message& write = recording.messages[0];
    EXPECT_EQ(1U, write.number);
    EXPECT_EQ((Bytes{0x10, 0x01}), write.data);
    EXPECT_EQ(2U, write.length);
    EXPECT_EQ(Call::Write, write.facts.call);
    EXPECT_FALSE(write.facts.isRead);
    EXPECT_EQ(1700000000000000000U, write.facts.time);
    EXPECT_EQ(1000U, write.facts.duration);
    EXPECT_EQ(7U, write.facts.bus);
    EXPECT_EQ(0x2a, write.facts.address);
    EXPECT_EQ(4711U, write.facts.process);
    EXPECT_EQ(4712U, write.facts.thread);
    EXPECT_EQ(2, write.facts.result);
    const Message& read = recording.messages[1];
    EXPECT_EQ(2U, read.number);
    EXPECT_TRUE(read.facts.isRead);
    EXPECT_EQ(Call::Read, read.facts.call);
    EXPECT_EQ((Bytes{0x10}), read.data);
    EXPECT_EQ(1700000000001000000U, read.facts.time);
}

TEST(Recording, CountsTheAttemptsOfARefusedMessageAndKeepsWhatItWasMeantToSend)
{
    TestCapture capture;
    capture.write({0x10, 0x01}, -ENXIO).write({0x10, 0x01}, -ETIMEDOUT).write({0x10, 0x01}).write({0x10});

    const auto messages = capture.recording().messages;
    ASSERT_EQ(4U, messages.size());
    EXPECT_EQ(-ENXIO, messages[0].facts.result);
    EXPECT_EQ(1U, messages[0].facts.attempt);
    EXPECT_EQ(0U, messages[0].length);
    EXPECT_EQ((Bytes{0x10, 0x01}), messages[0].bytes());
    EXPECT_EQ(-ETIMEDOUT, messages[1].facts.result);
    EXPECT_EQ(2U, messages[1].facts.attempt);
    EXPECT_EQ(3U, messages[2].facts.attempt);
    EXPECT_EQ(2, messages[2].facts.result);
    EXPECT_EQ(1U, messages[3].facts.attempt);
}

TEST(Recording, TellsHowMuchAShortReadWanted)
{
    TestCapture capture;
    capture.write({0x12}).readShort({1, 2, 3}, 64).readFails(64, EIO);

    const auto messages = capture.recording().messages;
    ASSERT_EQ(3U, messages.size());
    EXPECT_EQ(64U, messages[1].facts.requested);
    EXPECT_EQ(3, messages[1].facts.result);
    EXPECT_EQ((Bytes{1, 2, 3}), messages[1].data);
    EXPECT_EQ(-EIO, messages[2].facts.result);
    EXPECT_EQ(64U, messages[2].facts.requested);
    EXPECT_EQ(0U, messages[2].byteCount());
}

TEST(Recording, KnowsSelectionsAndTheirRefusals)
{
    TestCapture capture;
    capture.select(0x2a).select(0x2b, EBUSY);

    const auto messages = capture.recording().messages;
    ASSERT_EQ(2U, messages.size());
    EXPECT_TRUE(messages[0].isSelection());
    EXPECT_EQ(0, messages[0].facts.result);
    EXPECT_EQ(0x2b, messages[1].facts.address);
    EXPECT_EQ(-EBUSY, messages[1].facts.result);
}

TEST(Recording, RedactedKeepsLengthsAndWhatIsNoSecret)
{
    TestCapture capture;
    capture.redacts().write(kChallengeMessage).write(kChallengeMessage, -ENXIO).write({0x10, 0x01}).read({0x10});
    capture.write({0x31}).read(Bytes(128, 0x30));

    const auto messages = capture.recording().messages;
    ASSERT_EQ(6U, messages.size());
    EXPECT_EQ((Bytes{0x21}), messages[0].data);
    EXPECT_EQ(10U, messages[0].length);
    EXPECT_TRUE(messages[0].facts.isRedacted);
    EXPECT_EQ((Bytes{0x21}), messages[1].tried);
    EXPECT_EQ(10U, messages[1].byteCount());
    EXPECT_EQ((Bytes{0x10, 0x01}), messages[2].data);
    EXPECT_FALSE(messages[2].facts.isRedacted);
    EXPECT_EQ((Bytes{0x10}), messages[3].data);
    EXPECT_EQ(Bytes(), messages[5].data);
    EXPECT_EQ(128U, messages[5].length);
    EXPECT_EQ(128, messages[5].facts.result);
}

TEST(Recording, RedactedHoldsNoByteOfTheChallenge)
{
    const Bytes secret(32, 0xc5);
    Bytes message = {0x21};
    message.insert(message.end(), secret.begin(), secret.end());
    TestCapture open;
    open.write(message).write(message, -ENXIO).write({0x12}).read(secret);
    TestCapture redacted;
    redacted.redacts().write(message).write(message, -ENXIO).write({0x12}).read(secret);
    // Reads that run on from a harmless register into a secret one.
    redacted.write({0x11}).read(secret).write({0x20}).read(secret);

    const Bytes shown = open.content();
    EXPECT_EQ(96, std::count(shown.begin(), shown.end(), 0xc5));
    const Bytes content = redacted.content();
    EXPECT_EQ(0, std::count(content.begin(), content.end(), 0xc5));
}

TEST(Recording, ReadsCapturesOfOtherPrograms)
{
    TestCapture capture;
    capture.write({0x10, 0x01}).read({0x10});
    Bytes content = capture.content();
    // Their packets do not have our option.
    for (auto place = content.begin();;) {
        place = std::search(place, content.end(), std::begin(kMagic), std::end(kMagic));
        if (place == content.end())
            break;
        *place++ = 'X';
    }

    const auto messages = parseRecording(content.data(), content.size()).messages;
    ASSERT_EQ(2U, messages.size());
    EXPECT_EQ(Call::Unknown, messages[0].facts.call);
    EXPECT_EQ((Bytes{0x10, 0x01}), messages[0].data);
    EXPECT_EQ(2, messages[0].facts.result);
    EXPECT_EQ(0x2a, messages[0].facts.address);
    EXPECT_TRUE(messages[1].facts.isRead);
}

TEST(Recording, ReadsTheOtherByteOrder)
{
    Bytes swapped;
    const auto put = [&](std::initializer_list<unsigned> bytes) {
        for (const unsigned byte : bytes)
            swapped.push_back(static_cast<AL::U8>(byte));
    };
    put({0x0a, 0x0d, 0x0d, 0x0a, 0, 0, 0, 28, 0x1a, 0x2b, 0x3c, 0x4d, 0, 1, 0, 0});
    put({0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0, 0, 0, 28});
    put({0, 0, 0, 1, 0, 0, 0, 20, 0, 209, 0, 0, 0, 0, 0, 0, 0, 0, 0, 20}); // times are microseconds
    put({0, 0, 0, 6, 0, 0, 0, 40, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 7, 0, 0, 0, 7});
    put({1, 0, 0, 0, 0, 0x54, 0x04, 0, 0, 0, 0, 40});

    const auto messages = parseRecording(swapped.data(), swapped.size()).messages;
    ASSERT_EQ(1U, messages.size());
    EXPECT_EQ((Bytes{0x04}), messages[0].data);
    EXPECT_EQ(1U, messages[0].facts.bus);
    EXPECT_EQ(((std::uint64_t{1} << 32U) + 2) * 1000, messages[0].facts.time);
}

TEST(Recording, CutAnywhereItGivesTheMessagesBeforeTheCut)
{
    TestCapture capture;
    const std::size_t head = capture.content().size();
    capture.write({0x10, 0x01});
    const std::size_t first = capture.content().size();
    capture.read({0x10});
    const Bytes whole = capture.content();

    for (std::size_t length = head; length < whole.size(); ++length) {
        const Recording recording = parseRecording(whole.data(), length);
        EXPECT_EQ(length >= first ? 1U : 0U, recording.messages.size()) << length;
        EXPECT_EQ(length != head && length != first, !recording.damage.empty()) << length;
    }
    const std::string place = "byte " + std::to_string(first) + ": ";
    EXPECT_EQ(place + "the file ends in the middle of a block", damageOf(Bytes(whole.begin(), whole.end() - 1)));
}

TEST(Recording, SaysWhatIsNoCapture)
{
    EXPECT_EQ("it is not a pcapng file", errorOf({}));
    EXPECT_EQ("it is not a pcapng file", errorOf(Bytes(100, 'x')));
    TestCapture capture;
    Bytes content = capture.content();
    const std::size_t interface = lastBlock(content);
    content[interface + 8] = 1; // Ethernet
    EXPECT_EQ("it contains nothing from an I2C bus (link type 209)", errorOf(content));
    EXPECT_THROW(loadRecording("/nowhere/at-all"), RecordingError);
    EXPECT_THROW(loadRecording("/"), RecordingError);
}

TEST(Recording, SaysWhatContradictsItself)
{
    TestCapture capture;
    capture.write({0x10, 0x01});
    const Bytes content = capture.content();
    const std::size_t packet = lastBlock(content);
    const auto changed = [&](std::size_t offset, AL::U8 value) {
        Bytes copy = content;
        copy[offset] = value;
        return damageOf(copy);
    };
    EXPECT_THAT(changed(packet + 4, 13), HasSubstr("a block cannot be"));
    EXPECT_THAT(changed(packet + 4, 8), HasSubstr("a block cannot be 8 bytes long"));
    EXPECT_THAT(changed(content.size() - 4, 4), HasSubstr("the two lengths of a block differ"));
    EXPECT_THAT(changed(packet + 8, 1), HasSubstr("a packet belongs to interface 1, which does not exist"));
    EXPECT_THAT(changed(packet + 20, 255), HasSubstr("a packet is longer than its block"));
    EXPECT_THAT(changed(packet + 20, 5), HasSubstr("a packet is too short for an I2C message"));
    EXPECT_THAT(changed(packet + 25, 255), HasSubstr("a message cannot be"));
    EXPECT_THAT(changed(packet + 24, 9), HasSubstr("the facts about a message contradict it"));
}

TEST(Recording, RefusesAnErrorThatNoKernelHas)
{
    TestCapture capture;
    capture.write({0x10, 0x01});
    Bytes content = capture.content();
    const std::string magic = "ACP1";
    const auto found = std::search(content.begin(), content.end(), magic.begin(), magic.end());
    ASSERT_NE(content.end(), found);
    const auto result = found + 24; // four bytes, the highest first
    std::copy_n("\x80\0\0\0", 4, result);
    EXPECT_THAT(damageOf(content), HasSubstr("the facts about a message contradict it"));
}
