#include "tool/doctor/checks.h"

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include <sys/sem.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <abstractionlibrary/globalmutex.h>

#include "tests/support/temporarydirectory.h"
#include "tests/tool/lock/lockfolder.h"
#include "tool/lock/conditions.h"
#include "tool/lock/otherlocks.h"

using namespace testsupport;

namespace {

using namespace VorelKestrel::Tool;
using VorelKestrel::AL::GlobalMutex;

std::vector<Finding> nothingWrong(Examination& /*examination*/)
{
    return {healthy("fine")};
}

std::vector<Finding> somethingWrong(Examination& /*examination*/)
{
    return {{"broken", "it is broken", "Mend it,\nor buy another."}};
}

TEST(ChecksTest, AreSkippedWhereOneThatTheyNeedFoundSomethingWrong)
{
    Examination examination;
    const auto results = runChecks(examination, {{"first", {}, nothingWrong},
                                                 {"second", {"first"}, somethingWrong},
                                                 {"third", {"first", "second"}, nothingWrong},
                                                 {"fourth", {"third"}, nothingWrong},
                                                 {"fifth", {"first"}, nothingWrong}});
    ASSERT_EQ(5U, results.size());
    EXPECT_TRUE(results[0].isHealthy());
    EXPECT_STREQ("broken", results[1].findings.front().cause);
    EXPECT_EQ("Mend it, or buy another.", results[1].findings.front().next);
    EXPECT_TRUE(results[2].findings.front().isSkipped());
    EXPECT_TRUE(results[3].findings.front().isSkipped());
    EXPECT_TRUE(results[4].isHealthy());
}

TEST(ChecksTest, OfTheDoctorComeAfterThoseThatTheyNeed)
{
    std::set<std::string> earlier;
    for (const Check& check : doctorChecks()) {
        for (const char* need : check.needs)
            EXPECT_EQ(1U, earlier.count(need)) << check.name << " needs " << need;
        EXPECT_TRUE(earlier.insert(check.name).second) << check.name;
    }
}

TEST(NodeCheckTest, FindsThatANodeIsMissing)
{
    Examination examination;
    examination.location = {"/dev/i2c-missing", 0x2a};
    EXPECT_STREQ("node missing", checkNode(examination).front().cause);
    EXPECT_EQ(-1, examination.node.get());
}

TEST(NodeCheckTest, FindsThatAFileIsNoNodeAndDoesNotOpenIt)
{
    const TemporaryDirectory folder;
    Examination examination;
    examination.location = {folder.path() + "/file", 0x2a};
    std::ofstream(examination.location.device) << "x";
    EXPECT_STREQ("no I2C node", checkNode(examination).front().cause);
    EXPECT_EQ(-1, examination.node.get());
    EXPECT_FALSE(examination.isBus);
}

TEST(AddressCheckTest, FindsAnAddressOfEightBitsWithoutANode)
{
    Examination examination;
    examination.location = {"/dev/i2c-1", 0x84};
    const Finding finding = checkAddress(examination).front();
    EXPECT_STREQ("8-bit address", finding.cause);
    EXPECT_EQ("an I2C address has 7 bits: 0x84 includes the read/write bit", finding.found);
    EXPECT_EQ("Leave that bit out: --address 0x42.", finding.next);
}

TEST(AddressCheckTest, IsSkippedWithoutANode)
{
    Examination examination;
    examination.location = {"/dev/i2c-1", 0x2a};
    EXPECT_TRUE(checkAddress(examination).front().isSkipped());
}

TEST(AddressCheckTest, FindsThatADeviceIsNoBus)
{
    const TemporaryDirectory folder;
    const std::string node = folder.path() + "/i2c-1"; // the name of a node
    ASSERT_EQ(0, symlink("/dev/null", node.c_str()));
    Examination examination;
    examination.location = {node, 0x2a};
    EXPECT_TRUE(checkNode(examination).front().isHealthy());
    EXPECT_TRUE(examination.isBus);
    EXPECT_STREQ("no I2C node", checkAddress(examination).front().cause);
    EXPECT_FALSE(examination.isBus);
}

TEST(NodeCheckTest, FindsThatADeviceIsOfAnotherKind)
{
    Examination examination;
    examination.location = {"/dev/null", 0x2a};
    EXPECT_STREQ("no I2C node", checkNode(examination).front().cause);
    EXPECT_FALSE(examination.isBus);
}

TEST(AddressCheckTest, FindsAddressesThatTheBusReserves)
{
    for (const int reserved : {0x00, 0x03, 0x07, 0x78, 0x7f}) {
        Examination examination;
        examination.location = {"/dev/i2c-1", reserved};
        EXPECT_STREQ("reserved address", checkAddress(examination).front().cause) << reserved;
    }
    for (const int address : {0x08, 0x77}) {
        Examination examination;
        examination.location = {"/dev/i2c-1", address};
        EXPECT_TRUE(checkAddress(examination).front().isSkipped()) << address; // there is no node
    }
}

constexpr uid_t kSystemUser = 999; // the last; and neither this nor the others have to have a name
constexpr uid_t kPerson = 70001;
constexpr gid_t kGroup = 70000;

class LockCheckTest : public testing::Test
{
protected:
    LockCheckTest() { m_examination.lockFile = m_lock.keyFile(); }

    LockFolder m_lock;
    Examination m_examination;
};

TEST_F(LockCheckTest, IsHealthyWithoutALock)
{
    EXPECT_TRUE(checkLock(m_examination).front().isHealthy());
    EXPECT_FALSE(m_examination.token);
}

TEST_F(LockCheckTest, HoldsAFreeLockForTheChecksThatFollow)
{
    m_lock.seed();
    EXPECT_EQ(1, m_lock.look().value);
    EXPECT_TRUE(checkLock(m_examination).front().isHealthy());
    EXPECT_EQ(0, m_lock.look().value);
    m_examination.token.reset();
    EXPECT_EQ(1, m_lock.look().value);
}

TEST_F(LockCheckTest, FindsALockWithTooManyTokens)
{
    m_lock.seed();
    semctl(m_lock.look().semaphore, 0, SETVAL, 2);
    EXPECT_STREQ("too many tokens", checkLock(m_examination).front().cause);
    EXPECT_FALSE(m_examination.token);
}

TEST_F(LockCheckTest, SaysHowToKeepOthersFromMakingTheLock)
{
    EXPECT_EQ("no lock yet; the next process makes one. Run 'authchip lock seed' first, or any local user can make it "
              "instead",
              checkLock(m_examination).front().found);
}

TEST_F(LockCheckTest, SaysWhoElseHasPowerOverALockThatWasSeeded)
{
    const std::string systemd = "; systemd removes it when 70001 logs out, unless it has RemoveIPC=no";
    const struct
    {
        LockRights rights;
        std::string power;
    } rows[] = {
        {{kSystemUser, kGroup, 0600}, ""},
        {{kSystemUser, kGroup, 0660}, "; every member of group 70000 can block or break it"},
        {{kSystemUser, kGroup, 0606}, "; every local user can block or break it"},
        {{kSystemUser, kGroup, 0666}, "; every local user can block or break it"},
        {{kPerson, kGroup, 0666}, "; every local user can block or break it" + systemd},
    };
    m_lock.seed();
    for (const auto& row : rows) {
        const int semaphore = m_lock.look().semaphore;
        ASSERT_TRUE(changeRights(semaphore, row.rights)); // its creator may use it all the same
        EXPECT_EQ("semaphore " + std::to_string(semaphore) + ", free; it stays, since it was seeded" + row.power,
                  checkLock(m_examination).front().found);
        m_examination.token.reset();
    }
}

TEST_F(LockCheckTest, SaysWhatRemovesALockThatTheLibraryHasMade)
{
    m_lock.makeKeyFile();
    const GlobalMutex mutex;
    const int semaphore = m_lock.look().semaphore;
    for (const auto& [owner, more] :
         {std::pair{kSystemUser, ""},
          {kPerson, "; systemd removes it when 70001 logs out, unless it has RemoveIPC=no"}}) {
        ASSERT_TRUE(changeRights(semaphore, {owner, getegid(), 0666}));
        EXPECT_EQ("semaphore " + std::to_string(semaphore) +
                      ", free; it is removed when the process that made it exits" + more,
                  checkLock(m_examination).front().found);
        m_examination.token.reset();
    }
}

TEST_F(LockCheckTest, NotesThatARelativeFolderIsAnotherOneForOthers)
{
    m_examination.lockFile = "key-file";
    const auto findings = checkLock(m_examination);
    ASSERT_LE(2U, findings.size());
    EXPECT_TRUE(findings[1].isNote());
    EXPECT_EQ("TMPDIR is a relative path: a process in another folder has another lock", findings[1].found);
}

TEST_F(LockCheckTest, FindsThatTheSemaphoreOfASeedIsNotHere)
{
    m_lock.seed();
    const int semaphore = m_lock.look().semaphore;
    semctl(semaphore, 0, IPC_RMID);
    EXPECT_STREQ("second lock", checkLock(m_examination).front().cause);
}

TEST(NotesTest, CountTheMessagesThatWereRefused)
{
    EXPECT_TRUE(notesOnRefusals(0).empty());
    EXPECT_EQ("1 message was refused, and repeated", notesOnRefusals(1).front().found);
    EXPECT_EQ("2 messages were refused, and repeated", notesOnRefusals(2).front().found);
    EXPECT_TRUE(notesOnRefusals(2).front().isNote());
    const Finding other = notesOnRefusals(2, Failure("bus busy", "", "lost (EAGAIN)", "Measure.")).front();
    EXPECT_EQ("2 messages were refused, and repeated; one with lost (EAGAIN)", other.found);
    EXPECT_EQ("'authchip info --repeat 1000' counts how often that happens. Measure.", other.next);
}

TEST(NotesTest, CallABusSlowOnWhichAByteTakesMoreThanTwiceTheTimeOfTheSlowestUsualClock)
{
    using namespace std::chrono_literals;
    EXPECT_TRUE(notesOnSpeed(0us).empty()); // nothing was measured
    EXPECT_TRUE(notesOnSpeed(90us).empty());
    EXPECT_TRUE(notesOnSpeed(199us).empty());
    EXPECT_EQ("the bus is slow: a byte takes 0.2 ms, as at 45 kHz", notesOnSpeed(200us).front().found);
    EXPECT_EQ("the bus is slow: a byte takes 0.9 ms, as at 10 kHz", notesOnSpeed(900us).front().found);
    EXPECT_TRUE(notesOnSpeed(900us).front().isNote());
}

TEST(AlterationTest, IsTheFirstByteThatTheChipHoldsOtherwise)
{
    EXPECT_EQ("the challenge arrives altered: byte 1 was sent as 0x01, and the chip holds 0x03 (register 0x21)",
              findAlteration({0, 1, 2, 3}, {0, 3, 2, 3}));
}

TEST(AlterationTest, IsNoneInWhatArrivedAsItWasSentOrInWhatTheChipDoesNotShow)
{
    EXPECT_FALSE(findAlteration({0, 1, 2, 3}, {0, 1, 2, 3}));
    EXPECT_FALSE(findAlteration({0, 1, 2, 3}, {0xff, 0xff, 0xff, 0xff}));
    EXPECT_FALSE(findAlteration({0, 1, 2, 3, 4, 5, 6, 7}, {0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(SharingTest, IsForTheGroupOfTheLockUnlessItIsRootsOrMayNotUseIt)
{
    EXPECT_EQ("Join group 70000 ('adduser USER 70000' as root, then log in again); or have root run\n"
              "'authchip lock seed --group NAME' at boot, with a group of all who use the bus.",
              howToShare({0, kGroup, 0660}));
    EXPECT_EQ(kSeedForAll, howToShare({0, 0, 0660}));
    EXPECT_EQ(kSeedForAll, howToShare({0, kGroup, 0600}));
    EXPECT_EQ(kSeedForAll, howToShare({0, kGroup, 0640}));
}

TEST(TmpOfAServiceTest, IsTheInnermostMountThatSystemdMade)
{
    const std::string ordinary = "21 1 8:1 / / rw - ext4 /dev/sda1 rw\n30 21 0:26 / /tmp rw - tmpfs tmpfs rw\n";
    const std::string service = "40 30 0:26 /systemd-private-0f-board.service-x1/tmp /tmp rw - tmpfs tmpfs rw\n";
    const auto isOfService = [](const std::string& folder, const std::string& text) {
        std::istringstream mounts(text);
        return isOfOneService(folder, mounts);
    };
    EXPECT_FALSE(isOfService("/tmp", ordinary));
    EXPECT_TRUE(isOfService("/tmp", ordinary + service));
    EXPECT_TRUE(isOfService("/tmp/below", ordinary + service));
    EXPECT_FALSE(isOfService("/tmpfile", ordinary + service));
    EXPECT_FALSE(isOfService("/run", ordinary + service));
    EXPECT_TRUE(isOfService("/a tmp\\", "40 30 0:26 /systemd-private-0f-x/tmp /a\\040tmp\\134 rw - tmpfs tmpfs rw\n"));
    EXPECT_FALSE(isOfService("/tmp/lock", ordinary + service + "41 40 0:30 / /tmp/lock rw - tmpfs tmpfs rw\n"));
}

TEST(GenerationCheckTest, TellsTheProtocolOrThatThereIsNoDriver)
{
    Examination examination;
    examination.answer.deviceVersion = 7;
    EXPECT_EQ("device version 7, protocol 3.0", checkGeneration(examination).front().found);
    examination.answer.deviceVersion = 2;
    EXPECT_STREQ("version without driver", checkGeneration(examination).front().cause);
}

} // namespace
