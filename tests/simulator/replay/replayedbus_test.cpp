#include "simulator/replay/replayedbus.h"

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/node/i2cdevnode.h"
#include "simulator/replay/replayedregisters.h"
#include "tests/capture/records.h"
#include "tests/simulator/address.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using testing::HasSubstr;

namespace {

/// A recording, and a bus on which it happens again.
class ReplayTest : public testing::Test
{
protected:
    ReplayedBus& replayed()
    {
        m_recording = m_capture.recording();
        m_bus.emplace(m_recording, [this](const std::string& difference) { m_differences.push_back(difference); });
        return *m_bus;
    }
    int write(Bus& bus, const Bytes& bytes, unsigned address = kAddress)
    {
        return resultOf(bus.write(address, bytes.data(), bytes.size()));
    }
    int read(Bus& bus, std::size_t length, unsigned address = kAddress)
    {
        m_data.assign(length, 0xee);
        return resultOf(bus.read(address, m_data.data(), length));
    }

    TestCapture m_capture;
    Capture::Recording m_recording;
    std::optional<ReplayedBus> m_bus;
    std::vector<std::string> m_differences;
    Bytes m_data;
};

} // namespace

TEST_F(ReplayTest, AnswersAsRecorded)
{
    m_capture.select(kAddress).write({0x10, 1}, -ENXIO).write({0x10, 1}).write({0x10}).read({0x70});
    m_capture.readShort({1, 2}, 4).readFails(4, EREMOTEIO);
    ReplayedBus& bus = replayed();

    EXPECT_EQ(6U, bus.messagesLeft());
    EXPECT_EQ(-ENXIO, write(bus, {0x10, 1}));
    EXPECT_EQ(2, write(bus, {0x10, 1}));
    EXPECT_EQ(1, write(bus, {0x10}));
    EXPECT_EQ(1, read(bus, 1));
    EXPECT_EQ(Bytes{0x70}, m_data);
    EXPECT_EQ(2, read(bus, 4));
    EXPECT_EQ((Bytes{1, 2, 0, 0}), m_data);
    EXPECT_EQ(-EREMOTEIO, read(bus, 4));
    EXPECT_EQ(0U, bus.messagesLeft());
    EXPECT_TRUE(m_differences.empty());
}

TEST_F(ReplayTest, EndsWithTheFirstMessageThatDiffers)
{
    m_capture.select(kAddress).write({0x21, 1, 2}).write({0x10, 1});
    ReplayedBus& bus = replayed();

    EXPECT_EQ(-ENODEV, write(bus, {0x21, 1, 3}));
    EXPECT_EQ(-ENODEV, write(bus, {0x21, 1, 2})); // also what would have been right
    ASSERT_EQ(1U, m_differences.size());
    EXPECT_EQ("message 2 differs from the recording\n  expected: write 3 bytes to 0x2a: 210102\n"
              "  actual:   write 3 bytes to 0x2a: 210103",
              m_differences[0]);
    EXPECT_EQ(0U, bus.messagesLeft());
}

TEST_F(ReplayTest, SeesEveryKindOfDifference)
{
    const auto differenceOf = [&](auto message) {
        m_differences.clear();
        message(replayed());
        return m_differences.empty() ? "" : m_differences[0];
    };
    m_capture.write({0x10});
    EXPECT_THAT(differenceOf([&](Bus& bus) { write(bus, {0x10, 1}); }), HasSubstr("actual:   write 2 bytes"));
    EXPECT_THAT(differenceOf([&](Bus& bus) { write(bus, {0x10}, 0x2b); }), HasSubstr("to 0x2b"));
    EXPECT_THAT(differenceOf([&](Bus& bus) { read(bus, 1); }), HasSubstr("actual:   read 1 byte from 0x2a"));
    EXPECT_EQ("", differenceOf([&](Bus& bus) { write(bus, {0x10}); }));
    EXPECT_THAT(differenceOf([&](Bus& bus) {
                    write(bus, {0x10});
                    read(bus, 1);
                }),
                HasSubstr("message 2 differs from the recording\n  expected: none, the recording ends here"));
}

TEST_F(ReplayTest, OfAReadTheLengthCounts)
{
    m_capture.write({0x10}).read({1, 2});
    ReplayedBus& bus = replayed();
    EXPECT_EQ(1, write(bus, {0x10}));
    EXPECT_EQ(-ENODEV, read(bus, 1));
    EXPECT_THAT(m_differences.at(0), HasSubstr("expected: read 2 bytes from 0x2a\n  actual:   read 1 byte from 0x2a"));
}

TEST_F(ReplayTest, OfARedactedRecordingOnlyTheLengthsCount)
{
    m_capture.redacts().write({0x21, 1, 2, 3}).write({0x12}).read({4, 5, 6});
    ReplayedBus& bus = replayed();
    EXPECT_EQ(4, write(bus, {0x21, 9, 9, 9}));
    EXPECT_EQ(1, write(bus, {0x12}));
    EXPECT_EQ(3, read(bus, 3));
    EXPECT_EQ((Bytes{0, 0, 0}), m_data);
    EXPECT_TRUE(m_differences.empty());
}

TEST_F(ReplayTest, OfACombinedTransferThatFailedOneMessageComes)
{
    m_capture.facts.call = Capture::Call::Transfer;
    m_capture.facts.messageCount = 2;
    m_capture.write({0x10}, -ENXIO);
    m_capture.facts.place = 1;
    m_capture.readFails(1, ENXIO);
    m_capture.facts.place = 0;
    m_capture.write({0x10});
    m_capture.facts.place = 1;
    m_capture.read({7});
    ReplayedBus& bus = replayed();
    EXPECT_EQ(-ENXIO, write(bus, {0x10}));
    EXPECT_EQ(1, write(bus, {0x10}));
    EXPECT_EQ(1, read(bus, 1));
    EXPECT_EQ(0U, bus.messagesLeft());
}

TEST_F(ReplayTest, TellsNodeAndBoundAddresses)
{
    m_capture.select(0x2a, EBUSY).select(0x2b);
    m_recording = m_capture.recording();
    EXPECT_EQ("/dev/i2c-7", nodeOf(m_recording));
    EXPECT_EQ((std::set<unsigned>{0x2a}), boundAddressesOf(m_recording));
    EXPECT_EQ("", nodeOf({}));
}

TEST_F(ReplayTest, LooselyAnswersByRegister)
{
    m_capture.write({0x21, 1, 2}).write({0x10}).read({0x00}).write({0x10}, -ENXIO).write({0x10}).read({0x10});
    m_capture.write({0x12}).readShort({1, 2}, 4);
    m_recording = m_capture.recording();
    ReplayedRegisters bus(m_recording);

    EXPECT_EQ(1, write(bus, {0x12})); // in another order
    EXPECT_EQ(2, read(bus, 4));
    EXPECT_EQ(1, write(bus, {0x10}));
    EXPECT_EQ(1, read(bus, 1));
    EXPECT_EQ(Bytes{0x00}, m_data);
    EXPECT_EQ(4, write(bus, {0x21, 7, 8, 9})); // other bytes
    EXPECT_EQ(-ENXIO, write(bus, {0x10}));
    EXPECT_EQ(1, write(bus, {0x10}));
    EXPECT_EQ(3, read(bus, 3));
    EXPECT_EQ((Bytes{0x10, 0xff, 0xff}), m_data);
    EXPECT_EQ(3, read(bus, 3)); // the last answer stays
    EXPECT_EQ(-ENXIO, write(bus, {0x30}));
    EXPECT_EQ(-ENXIO, write(bus, {0x10}, 0x2b));
}
