#include <abstractionlibrary/mutex.h>

#include <thread>

#include <gtest/gtest.h>

using VorelKestrel::AL::Mutex;

namespace {

bool tryLockInAnotherThread(Mutex& mutex)
{
    bool taken = false;
    std::thread([&] { taken = mutex.tryLock(); }).join();
    return taken;
}

TEST(MutexTest, TryLockOnAMutexHeldByAnotherThreadReturnsFalse)
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

} // namespace
