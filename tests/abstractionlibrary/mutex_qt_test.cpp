#include <abstractionlibrary/mutex.h>

#include <gtest/gtest.h>

#include "tests/support/observedthread.h"

using namespace testsupport;
using VorelKestrel::AL::Mutex;

namespace {

bool tryLockInAnotherThread(Mutex& mutex)
{
    bool taken = false;
    ObservedThread([&] { taken = mutex.tryLock(); }).join();
    return taken;
}

TEST(MutexTest, TryLockOnAMutexHeldByAnotherThreadReturnsFalseAtOnce)
{
    Mutex mutex;
    mutex.lock();

    EXPECT_FALSE(tryLockInAnotherThread(mutex));
    mutex.unlock();
}

TEST(MutexTest, TryLockOnAFreeMutexReturnsTrueAndHoldsIt)
{
    Mutex mutex;

    EXPECT_TRUE(mutex.tryLock());
    EXPECT_FALSE(tryLockInAnotherThread(mutex));
    mutex.unlock();
}

TEST(MutexTest, TryLockByTheHolderItselfReturnsFalse)
{
    Mutex mutex;
    mutex.lock();

    EXPECT_FALSE(mutex.tryLock());
    mutex.unlock();
}

TEST(MutexTest, UnlockFreesTheMutex)
{
    Mutex mutex;
    mutex.lock();
    mutex.unlock();

    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST(MutexTest, LockWaitsUntilTheHolderUnlocks)
{
    Mutex mutex;
    mutex.lock();
    ObservedThread other([&] {
        mutex.lock();
        mutex.unlock();
    });

    other.waitUntilItSleeps();
    EXPECT_FALSE(other.hasEnded());

    mutex.unlock();
    other.join();
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST(MutexTest, LockBySecondCallOfTheHolderWaitsToo)
{
    Mutex mutex;
    ObservedThread holder([&] {
        mutex.lock();
        mutex.lock();
    });

    holder.waitUntilItSleeps();
    EXPECT_FALSE(holder.hasEnded());

    mutex.unlock(); // once for each lock()
    holder.join();
    mutex.unlock();
}

TEST(MutexTest, OnlyOneThreadAtATimeIsInside)
{
    constexpr int kRounds = 20000;
    Mutex mutex;
    int entered = 0; // on purpose without any other protection
    const auto enter = [&] {
        for (int round = 0; round < kRounds; ++round) {
            mutex.lock();
            ++entered;
            mutex.unlock();
        }
    };

    ObservedThread first(enter);
    ObservedThread second(enter);
    first.join();
    second.join();

    EXPECT_EQ(2 * kRounds, entered);
}

} // namespace
