#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/recording.h"
#include "capture/session.h"
#include "common/childprogram.h"
#include "common/hex.h"
#include "common/preload.h"
#include "tests/support/temporarydirectory.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Capture;
using namespace testsupport;
using testing::ElementsAre;

namespace {

constexpr int kDone = 7; // the probe's exit status

/// A message in a few words: "write 1001", "write ee06 ENXIO attempt 2".
std::string inWords(const Message& message)
{
    if (message.isSelection())
        return "select " + toHex(message.facts.address, 2);
    std::string words = (message.facts.isRead ? "read " : "write ") + toHex(message.bytes());
    if (message.facts.failed())
        words += std::string(" ") + strerrorname_np(-message.facts.result);
    if (message.facts.isShort())
        words += " short " + std::to_string(message.facts.result);
    if (message.facts.attempt > 1)
        words += " attempt " + std::to_string(message.facts.attempt);
    return words;
}

/// Runs the probe under a capture, on the fake node.
class PreloadTest : public testing::Test
{
protected:
    int run(const std::string& scenario, bool redact = false)
    {
        setenv("LD_PRELOAD", m_fakeNode.get().c_str(), 1);
        m_session.emplace(m_path, "test", CAPTURE_LIBRARY, redact);
        const int status = m_program.run({PROBE, scenario}, m_session->environment());
        unsetenv("LD_PRELOAD");
        m_recording = loadRecording(m_path);
        EXPECT_EQ("", m_recording.damage);
        return status;
    }
    std::vector<std::string> messages() const
    {
        std::vector<std::string> words;
        std::transform(m_recording.messages.begin(), m_recording.messages.end(), std::back_inserter(words), inWords);
        return words;
    }

    const PreloadPath m_fakeNode{FAKE_NODE};
    const TemporaryDirectory m_folder;
    const std::string m_path = m_folder.path() + "/test.pcapng";
    ChildProgram m_program;
    std::optional<Session> m_session;
    Recording m_recording;
};

} // namespace

TEST_F(PreloadTest, RecordsWhatAProgramDoes)
{
    ASSERT_EQ(kDone, run("plain"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 10", "read 4041"));
    const Facts& read = m_recording.messages[2].facts;
    EXPECT_EQ(Call::Read, read.call);
    EXPECT_EQ(9U, read.bus);
    EXPECT_EQ(0x2a, read.address);
    EXPECT_EQ(read.process, read.thread);
    EXPECT_NE(0U, read.process);
    EXPECT_LE(m_recording.messages[1].facts.time + m_recording.messages[1].facts.duration, read.time);
    EXPECT_TRUE(m_session->hasRecorded());
    EXPECT_EQ(0, m_session->error());
}

TEST_F(PreloadTest, RecordsWhatTheCLibrarySpellsOtherwise)
{
    ASSERT_EQ(kDone, run("spellings"));
    EXPECT_THAT(messages(),
                ElementsAre("write 00", "write 01", "write 02", "write 03", "write 04", "write 05", "write 06",
                            "write 07", "read 4041", "read 40", "read 40", "write 51", "write 52"));
    EXPECT_EQ(kUnknownAddress, m_recording.messages[0].facts.address);
}

TEST_F(PreloadTest, RecordsRefusalsAndShortCountsAndLeavesErrnoAlone)
{
    ASSERT_EQ(kDone, run("failures"));
    EXPECT_THAT(messages(),
                ElementsAre("select 0x2a", "write ee0603 ENXIO", "write ee0603 ENXIO attempt 2",
                            "write ee6e03 ETIMEDOUT attempt 3", "write  EFAULT", "write cc0e03 short 1", "write 00"));
}

TEST_F(PreloadTest, ReadsNoMemoryThatTheKernelMayNotRead)
{
    ASSERT_EQ(kDone, run("bad-memory"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write  EFAULT", "write 34"));
    EXPECT_EQ(0, m_session->error());
}

TEST_F(PreloadTest, RecordsCombinedTransfersMessageByMessage)
{
    ASSERT_EQ(kDone, run("transfers"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 1001", "read 404142", "write ee05 EIO", "read  EIO"));
    const Facts& read = m_recording.messages[2].facts;
    EXPECT_EQ(Call::Transfer, read.call);
    EXPECT_EQ(0x2b, read.address);
    EXPECT_EQ(1, read.place);
    EXPECT_EQ(2, read.messageCount);
    EXPECT_EQ(0U, read.duration);
}

TEST_F(PreloadTest, RecordsSmbusTransfersAsWhatIsOnTheWires)
{
    ASSERT_EQ(kDone, run("smbus"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write ", "write 11", "write 1299", "write 13", "read 02",
                                        "read 02", "write 14", "read 0241", "write 15", "read 4142", "write 16",
                                        "read 024142", "write 174142", "write ee ENXIO"));
    EXPECT_EQ(Call::Smbus, m_recording.messages[1].facts.call);
}

TEST_F(PreloadTest, FollowsDescriptorsThatAreDuplicatedAndForgetsThoseThatAreClosed)
{
    ASSERT_EQ(kDone, run("copies"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 01", "select 0x2b", "write 02", "write 03", "write 04"));
    EXPECT_EQ(0x2b, m_recording.messages[3].facts.address);
    EXPECT_EQ(0x2b, m_recording.messages[5].facts.address);
}

TEST_F(PreloadTest, RecordsNothingOfAFileThatGotANodesNumber)
{
    ASSERT_EQ(kDone, run("closed-past"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 01"));
}

TEST_F(PreloadTest, GoesOnWhenTheProgramClosesEverything)
{
    ASSERT_EQ(kDone, run("closes-all"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 01", "select 0x2a", "write 02", "select 0x2a", "write 03",
                                        "select 0x2a", "write 04", "select 0x2a", "write 05"));
    EXPECT_EQ(0, m_session->error());
}

TEST_F(PreloadTest, KeepsTheMessagesOfThreadsWhole)
{
    ASSERT_EQ(kDone, run("many-threads"));
    EXPECT_EQ(404U, m_recording.messages.size());
    std::map<unsigned, int> next;
    std::set<AL::U32> threads;
    for (const Message& message : m_recording.messages) {
        threads.insert(message.facts.thread);
        if (message.isSelection())
            continue;
        ASSERT_EQ(4U, message.data.size());
        EXPECT_EQ(next[message.data[0]]++, message.data[1]); // every thread's in its order
    }
    EXPECT_EQ(4U, threads.size());
}

TEST_F(PreloadTest, FollowsChildrenAndWhatTheyBecome)
{
    ASSERT_EQ(kDone, run("children"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 01", "write 02", "write 21", "write 03"));
    const auto processOf = [&](std::size_t place) { return m_recording.messages[place].facts.process; };
    EXPECT_NE(processOf(1), processOf(2));
    EXPECT_EQ(processOf(2), processOf(3));
    EXPECT_EQ(processOf(1), processOf(4));
    EXPECT_EQ(kUnknownAddress, m_recording.messages[3].facts.address);
}

TEST_F(PreloadTest, LeavesAReadableFileBehindAProgramThatIsKilled)
{
    EXPECT_EQ(128 + SIGKILL, run("dies"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 01"));
}

TEST_F(PreloadTest, NeverHarmsAProgramWhoseFilesMayNotGrow)
{
    EXPECT_EQ(kDone, run("small-files"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 01"));
    EXPECT_EQ(EFBIG, m_session->error());
}

TEST_F(PreloadTest, NeverHarmsAProgramWhoseCaptureIsGone)
{
    setenv("LD_PRELOAD", m_fakeNode.get().c_str(), 1);
    m_session.emplace(m_path, "test", CAPTURE_LIBRARY, false);
    ASSERT_EQ(0, std::remove(m_path.c_str()));
    EXPECT_EQ(kDone, m_program.run({PROBE, "plain"}, m_session->environment()));
    unsetenv("LD_PRELOAD");
    EXPECT_EQ(ENOENT, m_session->error());
}

TEST_F(PreloadTest, LooksAtDescriptorsThatCameThroughASocket)
{
    ASSERT_EQ(kDone, run("received"));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 01"));
}

TEST_F(PreloadTest, WritesOnceForAMessageAndAllocatesNothing)
{
    ASSERT_EQ(kDone, run("costs"));
    EXPECT_EQ(102U, m_recording.messages.size());
}

TEST_F(PreloadTest, DoesNothingWithoutTheEnvironmentOfACapture)
{
    const PreloadPath library(CAPTURE_LIBRARY);
    const std::string preload = "LD_PRELOAD=" + library.get() + ":" + m_fakeNode.get();
    EXPECT_EQ(kDone, m_program.run({PROBE, "plain"}, {preload}));
    EXPECT_EQ(kDone, m_program.run({PROBE, "plain"}, {preload, "AUTHCHIP_CAPTURE="}));
    EXPECT_EQ(kDone, m_program.run({PROBE, "plain"}, {preload, "AUTHCHIP_CAPTURE=0 0 0 0 relative"}));
}

TEST_F(PreloadTest, RedactsWhatCouldBeASecret)
{
    ASSERT_EQ(kDone, run("plain", true));
    EXPECT_THAT(messages(), ElementsAre("select 0x2a", "write 10", "read "));
    EXPECT_EQ(2U, m_recording.messages[2].length);
}
