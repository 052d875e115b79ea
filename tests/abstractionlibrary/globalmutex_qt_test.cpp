#include <abstractionlibrary/globalmutex.h>

#include <cerrno>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <type_traits>
#include <utility>
#include <vector>

#include <QString>
#include <QSystemSemaphore>
#include <gtest/gtest.h>

#include <abstractionlibrary/mutex.h>

#include "tests/support/childprocess.h"
#include "tests/support/observedthread.h"
#include "tests/support/privatelocks.h"
#include "tests/support/systemcalls.h"

using namespace testsupport;
using VorelKestrel::AL::GlobalMutex;

namespace {

class GlobalMutexTest : public ::testing::Test
{
private:
    const PrivateLocks m_locks;

protected:
    GlobalMutex m_mutex;
};

/// True if lock() on another object does not return; does not change the count.
bool isTaken()
{
    GlobalMutex mutex;
    ObservedThread other([&] { mutex.lock(); });
    other.waitUntilItSleeps();
    const bool taken = !other.hasEnded();
    mutex.unlock(); // pairs with the other's lock(), and lets it go if it waits
    other.join();
    return taken;
}

TEST_F(GlobalMutexTest, TwoObjectsInOneProcessExcludeEachOther)
{
    GlobalMutex first;
    GlobalMutex second;
    first.lock();
    ObservedThread other([&] { second.lock(); });

    other.waitUntilItSleeps();
    EXPECT_FALSE(other.hasEnded());

    first.unlock();
    other.join();
    second.unlock();
}

TEST_F(GlobalMutexTest, TwoObjectsInTwoProcessesExcludeEachOther)
{
    const Channel locked;
    const Channel mayUnlock;
    ChildProcess child([&] {
        GlobalMutex mutex;
        mutex.lock();
        locked.say();
        mayUnlock.hear();
        mutex.unlock();
    });
    locked.hear();
    GlobalMutex mutex;
    ObservedThread other([&] { mutex.lock(); });

    other.waitUntilItSleeps();
    EXPECT_FALSE(other.hasEnded());

    mayUnlock.say();
    other.join();
    mutex.unlock();
}

TEST_F(GlobalMutexTest, AProcessThatComesLaterFindsTheCountAsItIs)
{
    m_mutex.lock();
    const Channel entered;
    ChildProcess child([&] {
        GlobalMutex mutex;
        mutex.lock();
        entered.say();
        mutex.unlock();
    });

    child.waitUntilItSleeps();
    EXPECT_FALSE(entered.hasWord());

    m_mutex.unlock();
    entered.hear();
}

/// A number that processes share.
class SharedNumber
{
public:
    SharedNumber()
        : m_number(static_cast<volatile int*>(
              mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {}
    ~SharedNumber() { munmap(const_cast<int*>(m_number), sizeof(int)); }
    SharedNumber(const SharedNumber&) = delete;
    SharedNumber& operator=(const SharedNumber&) = delete;

    int get() const { return *m_number; }
    /// Not in one step: two that increment at the same time lose one.
    void increment()
    {
        const int before = *m_number;
        sched_yield();
        *m_number = before + 1;
    }

private:
    volatile int* m_number;
};

TEST_F(GlobalMutexTest, OfSeveralProcessesOnlyOneAtATimeIsInside)
{
    constexpr int kRounds = 1000;
    SharedNumber entered;
    const auto enter = [&] {
        GlobalMutex mutex;
        for (int round = 0; round < kRounds; ++round) {
            mutex.lock();
            entered.increment();
            mutex.unlock();
        }
    };

    ChildProcess first(enter);
    ChildProcess second(enter);
    enter();
    first.join();
    second.join();

    EXPECT_EQ(3 * kRounds, entered.get());
}

TEST_F(GlobalMutexTest, LockFollowedByUnlockLeavesTheCountWhereItWas)
{
    for (int round = 0; round < 3; ++round) {
        m_mutex.lock();
        m_mutex.unlock();
    }

    EXPECT_FALSE(isTaken()); // at least one token is there ...
    m_mutex.lock();
    EXPECT_TRUE(isTaken()); // ... and no second one
    m_mutex.unlock();
}

TEST_F(GlobalMutexTest, ASecondLockByTheHolderWaits)
{
    m_mutex.lock();
    ObservedThread again([&] { m_mutex.lock(); });

    again.waitUntilItSleeps();
    EXPECT_FALSE(again.hasEnded());

    m_mutex.unlock();
    again.join();
    m_mutex.unlock();
}

TEST_F(GlobalMutexTest, AnyThreadMayUnlockWhatAnotherHasLocked)
{
    ObservedThread([&] { m_mutex.lock(); }).join();
    EXPECT_TRUE(isTaken());

    m_mutex.unlock();
    EXPECT_FALSE(isTaken());
}

TEST_F(GlobalMutexTest, AnUnlockTooManyLetsTwoHoldersIn)
{
    m_mutex.unlock();

    m_mutex.lock();
    EXPECT_FALSE(isTaken());
    m_mutex.lock();
    EXPECT_TRUE(isTaken());
    m_mutex.unlock();
    m_mutex.unlock();
}

TEST_F(GlobalMutexTest, TheDestructorDoesNotGiveBackATokenThatIsHeld)
{
    {
        GlobalMutex mutex;
        mutex.lock();
    }
    EXPECT_TRUE(isTaken());
    m_mutex.unlock();
}

TEST_F(GlobalMutexTest, TheKeyIsTheSameInEveryProcess)
{
    using std::filesystem::directory_iterator;
    std::vector<std::string> files;
    for (const auto& entry : directory_iterator(std::filesystem::temp_directory_path()))
        files.push_back(entry.path().filename().string());

    ASSERT_EQ(1U, files.size());
    EXPECT_NE(std::string::npos, files[0].find("Wexfordmallow")) << files[0];
}

// Processes that do without this library find the lock by that key.
TEST_F(GlobalMutexTest, IsTheSystemSemaphoreOfQtWithTheKeyWexfordmallow)
{
    QSystemSemaphore semaphore(QStringLiteral("Wexfordmallow"), 1, QSystemSemaphore::Open);
    m_mutex.lock();
    ObservedThread other([&] { semaphore.acquire(); });

    other.waitUntilItSleeps();
    EXPECT_FALSE(other.hasEnded());

    m_mutex.unlock();
    other.join();
    EXPECT_TRUE(isTaken());
    semaphore.release();
    EXPECT_FALSE(isTaken());
}

/// Counts the operations on semaphores; they fail, or succeed without a semaphore.
class FakeSemaphore : public SystemCallHandler
{
public:
    explicit FakeSemaphore(int error) : m_error(error) { install(this); }
    ~FakeSemaphore() override { install(nullptr); }
    FakeSemaphore(const FakeSemaphore&) = delete;
    FakeSemaphore& operator=(const FakeSemaphore&) = delete;

    const std::vector<int>& changes() const { return m_changes; }

    bool answersForPausesAndLocks() override { return true; }
    int changeSemaphore(int delta) override
    {
        m_changes.push_back(delta);
        errno = m_error;
        return m_error == 0 ? 0 : -1;
    }

private:
    const int m_error;
    std::vector<int> m_changes;
};

TEST_F(GlobalMutexTest, LockTakesOneTokenAndUnlockGivesOneBack)
{
    const FakeSemaphore semaphore(0);
    m_mutex.lock();
    m_mutex.unlock();

    EXPECT_EQ((std::vector<int>{-1, 1}), semaphore.changes());
}

TEST_F(GlobalMutexTest, ARefusalOfTheSystemIsNotReported)
{
    const FakeSemaphore semaphore(EACCES);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    m_mutex.lock();
    m_mutex.unlock();

    EXPECT_EQ((std::vector<int>{-1, 1}), semaphore.changes());
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout());
    EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
}

template<typename Lock, typename = void>
struct HasTryLock : std::false_type
{};

template<typename Lock>
struct HasTryLock<Lock, decltype(void(std::declval<Lock&>().tryLock()))> : std::true_type
{};

TEST(GlobalMutexInterfaceTest, HasNoTryLockUnlikeMutex)
{
    EXPECT_FALSE(HasTryLock<GlobalMutex>::value);
    EXPECT_TRUE(HasTryLock<VorelKestrel::AL::Mutex>::value);
}

TEST_F(GlobalMutexTest, AnUnlockedMutexCanBeDestroyedWhileTheSystemRefuses)
{
    const FakeSemaphore semaphore(EACCES);
    {
        const GlobalMutex mutex;
    }
    EXPECT_TRUE(semaphore.changes().empty());
}

} // namespace
