#include "capture/analysis.h"

#include <cerrno>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "capture/output.h"
#include "tests/capture/records.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Capture;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint64_t kMillisecond = 1000000;

Bytes challengeOf(std::size_t length)
{
    Bytes message(1 + length, 0x5a);
    message[0] = 0x21;
    return message;
}

/// A capture and its explanation.
class AnalysisTest : public testing::Test
{
protected:
    void detect(AL::U8 version) { m_capture.select(0x2a).write({0x00}).read({version}); }
    void sign30()
    {
        m_capture.write(challengeOf(32)).write({0x20}).read({0, 32}).write({0x10, 0x01}).write({0x10}).read({0x10});
        m_capture.write({0x11}).read({0, 64}).write({0x12}).read(Bytes(64, 1));
    }
    const Analysis& analysed()
    {
        m_recording = m_capture.recording();
        m_analysis = analyse(m_recording);
        return m_analysis;
    }
    std::vector<std::string> lines()
    {
        std::vector<std::string> lines;
        for (const Step& step : analysed().steps)
            lines.push_back(step.line());
        return lines;
    }
    std::vector<std::string> operations()
    {
        std::vector<std::string> names;
        for (const Operation& operation : analysed().operations) {
            names.push_back(operation.name + " " + std::to_string(operation.end - operation.begin));
            for (const std::string& note : operation.notes)
                names.push_back(note);
        }
        return names;
    }

    TestCapture m_capture;
    Recording m_recording;
    Analysis m_analysis;
};

} // namespace

TEST_F(AnalysisTest, SpeaksTheChipsWords)
{
    detect(7);
    sign30();
    m_capture.write({0x30}).read({0x01, 0x8d}).write({0x31}).read(Bytes(128, 1)).write({0x04}).read({0, 0, 2, 0});
    EXPECT_THAT(lines(),
                ElementsAre("select address 0x2a", "name register 0x00, device version",
                            "read device version: 7, protocol 3.0", "write challenge, 32 bytes",
                            "name register 0x20, challenge length", "read challenge length: 32", "write start command",
                            "name register 0x10, status", "read status: generated (0x10)",
                            "name register 0x11, signature length", "read signature length: 64",
                            "name register 0x12, signature", "read signature, 64 bytes",
                            "name register 0x30, certificate length", "read certificate length: 397",
                            "name register 0x31, certificate page 1", "read certificate page 1, 128 bytes",
                            "name register 0x04, device ID", "read device ID: 0x00000200"));
}

TEST_F(AnalysisTest, TellsABusyChipFromOneThatIsNotThere)
{
    m_capture.write({0x00}, -ENXIO).passes(10 * kMillisecond).write({0x00}, -EREMOTEIO).passes(10 * kMillisecond);
    m_capture.write(challengeOf(32)).write({0x10, 0x01}).write({0x10}, -ENXIO).passes(10 * kMillisecond).write({0x10});
    m_capture.read({0x10}).write({0x10}, -ENXIO);
    EXPECT_THAT(lines(),
                ElementsAre("name register 0x00, device version: refused (1 of 100)",
                            "name register 0x00, device version: refused (2 of 100)", "write challenge, 32 bytes",
                            "write start command", "name register 0x10, status: refused, busy (1 of 100)",
                            "name register 0x10, status", "read status: generated (0x10)",
                            "name register 0x10, status: refused (1 of 100)"));
}

TEST_F(AnalysisTest, SaysHowMessagesFail)
{
    m_capture.select(0x2a, EBUSY).write({0x12}, -ETIMEDOUT).write({0x12}).readShort({1}, 64).readFails(64, EIO);
    m_capture.readFails(64, EAGAIN);
    EXPECT_THAT(lines(), ElementsAre("select address 0x2a: held by a kernel driver",
                                     "name register 0x12, signature: timed out (1 of 100)",
                                     "name register 0x12, signature  <- repeated within 10 ms",
                                     "read signature, 64 bytes: short, 1 of 64 bytes",
                                     "read signature, 64 bytes: failed, EIO (2 of 100)",
                                     "read signature, 64 bytes: arbitration lost (3 of 100)"));
}

TEST_F(AnalysisTest, TellsStatusesApart)
{
    m_capture.write({0x10}).read({0x00}).read({0x70}).read({0x9f});
    EXPECT_THAT(lines(), ElementsAre("name register 0x10, status", "read status: nothing generated (0x00)",
                                     "read status: not generated, result 7 (0x70)", "read status: generated (0x9f)"));
}

TEST_F(AnalysisTest, GroupsMessagesByOperation)
{
    detect(7);
    m_capture.write({0x00}).read({7}).write({0x01}).read({1});
    m_capture.write({0x30}).read({0, 130}).write({0x31}).read(Bytes(128, 1)).write({0x32}).read({1, 2});
    sign30();
    sign30();
    EXPECT_THAT(operations(),
                ElementsAre("detect the chip 3", "identity 4", "certificate 6", "signature 10", "signature 10"));
}

TEST_F(AnalysisTest, GroupsTheExchangeOfTheOtherGeneration)
{
    detect(3);
    for (int i = 0; i < 2; ++i) {
        m_capture.write({0x11, 0, 128}).write({0x20, 0, 20}).write(challengeOf(20)).write({0x10, 1}).write({0x10});
        m_capture.read({0x10}).write({0x11}).read({0, 128}).write({0x12}).read(Bytes(128, 1));
    }
    EXPECT_THAT(operations(), ElementsAre("detect the chip 3", "signature 10", "signature 10"));
    for (const Step& step : m_analysis.steps)
        EXPECT_THAT(step.oddities, IsEmpty()) << step.what;
}

TEST_F(AnalysisTest, KeepsProcessesApart)
{
    m_capture.write({0x00}).read({7});
    m_capture.facts.process = 5000;
    m_capture.write({0x00}).read({7});
    EXPECT_THAT(operations(), ElementsAre("identity 2", "identity 2"));
}

TEST_F(AnalysisTest, PointsOutIncompleteExchanges)
{
    m_capture.write(challengeOf(32)).write({0x10, 1}).write({0x10}).read({0x10});
    m_capture.write({0x30}).read({0, 200}).write({0x31}).read(Bytes(128, 1));
    m_capture.write(challengeOf(32)).write({0x10, 1}).write({0x10}).read({0x70});
    m_capture.write({0x04});
    m_capture.write(challengeOf(32));
    m_capture.write({0x00}, -ENXIO);
    EXPECT_THAT(operations(),
                ElementsAre("signature 4", "incomplete: the signature was not read", "certificate 4",
                            "incomplete: 128 of the certificate's 200 bytes were read", "signature 4",
                            "the chip did not sign", "identity 1", "incomplete: device ID was named but not read",
                            "signature 1", "incomplete: no start command follows the challenge", "identity 1",
                            "ends with a failed message: name register 0x00, device version: "
                            "refused (1 of 100)"));
}

TEST_F(AnalysisTest, PointsOutWhatNoLibraryOfOursSends)
{
    detect(7);
    m_capture.read({1, 2}).write({0x55}).write({0x04, 1}).write(challengeOf(33)).write({0x3c}).write({0x10, 1});
    m_capture.write({0x10, 1}).write({});
    const auto lines = this->lines();
    EXPECT_THAT(std::vector<std::string>(lines.begin() + 3, lines.end()),
                ElementsAre("read device version, 2 bytes  <- this register has 1 byte",
                            "name register 0x55  <- this register does not exist",
                            "write device ID, 1 byte  <- this register is read-only",
                            "write challenge, 33 bytes  <- a challenge of protocol 3.0 has 32 bytes",
                            "name register 0x3c, certificate page 12  <- a chip of protocol 3.0 has no such page",
                            "write start command", "write start command  <- a command without a challenge",
                            "write 0 bytes  <- a write without a register"));
}

TEST_F(AnalysisTest, PointsOutOtherCallsAndReadsOfAnUnknownRegister)
{
    m_capture.facts.call = Call::Transfer;
    m_capture.read({1});
    m_capture.facts.call = Call::Smbus;
    m_capture.write({0x00});
    EXPECT_THAT(lines(),
                ElementsAre("read 1 byte of an unknown register  <- sent with ioctl(I2C_RDWR); our library uses "
                            "write() and read()  <- no register was named",
                            "name register 0x00, device version  <- sent with ioctl(I2C_SMBUS); our library "
                            "uses write() and read()"));
}

TEST_F(AnalysisTest, SharesTheTimeBetweenBusChipAndProgram)
{
    m_capture.facts.duration = kMillisecond / 2; // and an equally long pause after it
    m_capture.write(challengeOf(32)).write({0x10, 1});
    m_capture.write({0x10}, -ENXIO).passes(9 * kMillisecond).write({0x10}).read({0x10});

    const Times& times = analysed().operations.at(0).times;
    EXPECT_EQ(2 * kMillisecond, times.bus); // but for the refused message
    EXPECT_EQ(kMillisecond / 2 + kMillisecond / 2 + 9 * kMillisecond + kMillisecond / 2, times.chip);
    EXPECT_EQ(kMillisecond, times.between);
    EXPECT_EQ(times.bus + times.chip + times.between, times.total);
}

TEST_F(AnalysisTest, TellsRedactedLengthsAndNothingElse)
{
    m_capture.redacts().write(challengeOf(32)).write({0x12}).read(Bytes(64, 1));
    EXPECT_THAT(lines(),
                ElementsAre("write challenge, 32 bytes", "name register 0x12, signature", "read signature, 64 bytes"));
}

TEST_F(AnalysisTest, PrintsOneJsonObject)
{
    detect(7);
    m_capture.write({0x10}, -ENXIO);
    analysed();
    std::ostringstream out;
    printJson(m_recording, m_analysis, out);
    const auto json = nlohmann::json::parse(out.str());
    ASSERT_EQ(4U, json["messages"].size());
    EXPECT_EQ(nullptr, json["messages"][0]["register"]);
    EXPECT_EQ("I2C_SLAVE", json["messages"][0]["call"]);
    EXPECT_EQ(0, json["messages"][2]["register"]);
    EXPECT_EQ("07", json["messages"][2]["data"]);
    EXPECT_EQ(0.002, json["messages"][2]["seconds"]);
    EXPECT_EQ(-ENXIO, json["messages"][3]["result"]);
    EXPECT_EQ("refused (1 of 100)", json["messages"][3]["outcome"]);
    ASSERT_EQ(2U, json["operations"].size());
    EXPECT_EQ(3, json["operations"][0]["lastMessage"]);
    EXPECT_EQ(1, json["operations"][1]["failures"]);
    EXPECT_EQ("", json["damage"]);
}

TEST_F(AnalysisTest, PrintsALineForEachMessage)
{
    detect(7);
    analysed();
    std::ostringstream out;
    printText(m_recording, m_analysis, out);
    EXPECT_EQ("detect the chip (process 4711, thread 4712, bus 7, 0x2a)\n"
              "    0.000 s  select address 0x2a\n"
              "    0.001 s  name register 0x00, device version\n"
              "    0.002 s  read device version: 7, protocol 3.0\n"
              "             3 messages in 0.002 s: 0.000 s on the bus, 0.002 s between\n",
              out.str());
}

TEST_F(AnalysisTest, AnEmptyCaptureHasNoMessage)
{
    analysed();
    std::ostringstream out;
    printText(m_recording, m_analysis, out);
    EXPECT_EQ("no message\n", out.str());
}
