#include "tool/lock/systemlock.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <abstractionlibrary/globalmutex.h>

#include "tests/support/childprocess.h"
#include "tests/support/observedthread.h"
#include "tests/tool/lock/lockfolder.h"
#include "tool/lock/otherlocks.h"
#include "tool/report/failure.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;
using namespace testsupport;
using VorelKestrel::AL::GlobalMutex;

namespace {

class SystemLockTest : public testing::Test
{
protected:
    /// As only a defect or a tool of somebody else's does it.
    void setTokens(int count) { semctl(m_folder.look().semaphore, 0, SETVAL, count); }

    LockFolder m_folder;
};

TEST_F(SystemLockTest, IsTheOneOfTheLibrary)
{
    EXPECT_EQ(LockCondition::None, m_folder.look().condition);
    EXPECT_FALSE(m_folder.look().keyFileExists);

    GlobalMutex mutex;
    EXPECT_EQ(LockCondition::Free, m_folder.look().condition);
    mutex.lock();
    EXPECT_EQ(LockCondition::Held, m_folder.look().condition);
    EXPECT_EQ(getpid(), m_folder.look().lastUser);
    mutex.unlock();
    EXPECT_EQ(LockCondition::Free, m_folder.look().condition);
}

TEST_F(SystemLockTest, IsTheOneOfTheLibraryForEverySpellingOfTheFolder)
{
    const std::string folder = std::filesystem::temp_directory_path();
    const GlobalMutex mutex;
    const int semaphore = m_folder.look().semaphore;
    for (const std::string& spelling : {folder + "/", folder + "//.", folder + "/missing/.."}) {
        setenv("TMPDIR", spelling.c_str(), 1);
        EXPECT_EQ(semaphore, lookAtLock(lockKeyFile()).semaphore) << spelling;
        GlobalMutex same;
        same.lock();
        EXPECT_EQ(0, m_folder.look().value) << spelling;
        same.unlock();
    }
}

TEST_F(SystemLockTest, LiesInTmpWithoutATmpdir)
{
    EXPECT_EQ("/tmp", std::filesystem::path(lockKeyFile("")).parent_path());
    unsetenv("TMPDIR");
    EXPECT_EQ(lockKeyFile(""), lockKeyFile());
    setenv("TMPDIR", "", 1);
    EXPECT_EQ(lockKeyFile(""), lockKeyFile());
}

TEST_F(SystemLockTest, ShowsOwnerGroupAndModeOfWhatTheLibraryMade)
{
    const GlobalMutex mutex;
    const LockState state = m_folder.look();
    EXPECT_EQ(geteuid(), state.rights.owner);
    EXPECT_EQ(getegid(), state.rights.group);
    EXPECT_EQ(0600U, state.rights.mode);
    EXPECT_FALSE(state.stays);
}

TEST_F(SystemLockTest, CountsThoseWhoWait)
{
    GlobalMutex mutex;
    mutex.lock();
    EXPECT_EQ(0, m_folder.look().waiting);
    ObservedThread other([&] { mutex.lock(); });
    other.waitUntilItSleeps();
    EXPECT_EQ(1, m_folder.look().waiting);
    mutex.unlock();
    other.join();
    mutex.unlock();
}

TEST_F(SystemLockTest, IsFreeAgainAfterItsHolderDied)
{
    const GlobalMutex keeper;
    ChildProcess([] {
        GlobalMutex mutex;
        mutex.lock();
    }).join();
    EXPECT_EQ(LockCondition::Free, m_folder.look().condition);
}

TEST_F(SystemLockTest, IsLostWhenItsTokenIsGoneAndItsLastUserToo)
{
    const GlobalMutex keeper;
    ChildProcess([&] { setTokens(0); }).join();
    EXPECT_EQ(LockCondition::Lost, m_folder.look().condition);
}

TEST_F(SystemLockTest, IsLostAlsoWhenNobodyHasTakenNoteYetThatItsLastUserHasEnded)
{
    const GlobalMutex keeper;
    const pid_t child = fork();
    if (child == 0) {
        setTokens(0);
        _exit(0);
    }
    siginfo_t information = {};
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(child), &information, WEXITED | WNOWAIT));
    EXPECT_EQ(child, m_folder.look().lastUser);
    EXPECT_EQ(LockCondition::Lost, m_folder.look().condition);
    EXPECT_FALSE(isAlive(child));
    waitpid(child, nullptr, 0);
}

TEST_F(SystemLockTest, HasTooManyTokensAfterAnUnlockTooMany)
{
    GlobalMutex mutex;
    mutex.unlock();
    EXPECT_EQ(LockCondition::TooMany, m_folder.look().condition);
    EXPECT_EQ(2, m_folder.look().value);
    mutex.lock();
}

TEST_F(SystemLockTest, SeededStaysWhenTheProcessesThatUseItExit)
{
    m_folder.seed();
    const int semaphore = m_folder.look().semaphore;
    {
        GlobalMutex mutex;
        mutex.lock();
        EXPECT_EQ(LockCondition::Held, m_folder.look().condition);
        mutex.unlock();
    }
    EXPECT_EQ(semaphore, m_folder.look().semaphore);
    EXPECT_EQ(LockCondition::Free, m_folder.look().condition);
    EXPECT_TRUE(m_folder.look().stays);
}

TEST_F(SystemLockTest, SeededHasTheRightsThatWereAskedFor)
{
    m_folder.seed(getegid(), 0660);
    EXPECT_EQ(0660U, m_folder.look().rights.mode);
    m_folder.seed(getegid(), 0666);
    EXPECT_EQ((LockRights{geteuid(), getegid(), 0666}), m_folder.look().rights);
}

TEST_F(SystemLockTest, IsNotThereAfterASeedThatFailedHalfWay)
{
    constexpr auto kNoGroup = static_cast<gid_t>(-1); // the kernel takes it for none
    EXPECT_THROW(m_folder.seed(kNoGroup), Failure);
    EXPECT_EQ(-1, m_folder.look().semaphore);
}

TEST_F(SystemLockTest, IsNotSeededOverALockThatIsThere)
{
    GlobalMutex mutex;
    mutex.lock();
    EXPECT_THROW(m_folder.seed(), Failure);
    EXPECT_EQ(LockCondition::Held, m_folder.look().condition);
    mutex.unlock();
}

TEST_F(SystemLockTest, IsNotTakenForSeededWhenItsSemaphoreWasRemovedAndMadeAnewByTheLibrary)
{
    m_folder.seed();
    semctl(m_folder.look().semaphore, 0, IPC_RMID);
    EXPECT_EQ(LockCondition::None, m_folder.look().condition);
    const GlobalMutex mutex;
    EXPECT_EQ(LockCondition::Free, m_folder.look().condition);
    EXPECT_FALSE(m_folder.look().stays);
}

TEST_F(SystemLockTest, TokenKeepsTheLibraryOutAndComesBackAtTheEndOfItsScope)
{
    GlobalMutex mutex;
    {
        const LockToken token(m_folder.look().semaphore, 0);
        EXPECT_TRUE(token.isHeld());
        EXPECT_EQ(LockCondition::Held, m_folder.look().condition);
    }
    EXPECT_EQ(LockCondition::Free, m_folder.look().condition);
}

TEST_F(SystemLockTest, TokenComesBackWhenItsHolderDies)
{
    const GlobalMutex keeper;
    ChildProcess([this] {
        const LockToken token(m_folder.look().semaphore, 0);
        _exit(token.isHeld() ? 0 : 1); // without the end of its scope
    }).join();
    EXPECT_EQ(LockCondition::Free, m_folder.look().condition);
}

TEST_F(SystemLockTest, TokenIsNotWaitedForBeyondTheTimeGiven)
{
    GlobalMutex mutex;
    mutex.lock();
    {
        const LockToken token(m_folder.look().semaphore, 1);
        EXPECT_FALSE(token.isHeld());
        EXPECT_EQ(EAGAIN, token.error());
    }
    EXPECT_EQ(0, m_folder.look().value);
    mutex.unlock();
}

TEST_F(SystemLockTest, OfASeedInAnotherFolderIsFoundAndItsOwnIsNot)
{
    const KeyFolder here(m_folder.keyFile());
    const auto isFound = [&](int semaphore) {
        const auto sets = findSeedsElsewhere(here, m_folder.look());
        return std::any_of(sets.begin(), sets.end(), [=](const auto& set) { return set.number == semaphore; });
    };
    LockFolder other;
    other.seed();
    EXPECT_TRUE(isFound(other.look().semaphore));
    m_folder.seed();
    EXPECT_FALSE(isFound(m_folder.look().semaphore));
    unlink(m_folder.keyFile().c_str()); // an orphan is of here, too
    EXPECT_EQ(1U, findOrphans(here).size());
    EXPECT_FALSE(isFound(findOrphans(here).front().number));
}

TEST_F(SystemLockTest, LacksTheSemaphoreOfASeedOnlyOnceTheKeyFileIsMadeAndTheSemaphoreGone)
{
    EXPECT_FALSE(lacksSemaphoreOfSeed(m_folder.look()));
    m_folder.makeKeyFile();
    EXPECT_FALSE(lacksSemaphoreOfSeed(m_folder.look()));
    m_folder.clear();
    m_folder.seed();
    LockState state = m_folder.look();
    EXPECT_FALSE(lacksSemaphoreOfSeed(state));
    semctl(state.semaphore, 0, IPC_RMID);
    state = m_folder.look();
    EXPECT_TRUE(lacksSemaphoreOfSeed(state));
    state.file.status.st_ctim.tv_sec = 0; // of before the machine started
    EXPECT_FALSE(lacksSemaphoreOfSeed(state));
}

} // namespace
