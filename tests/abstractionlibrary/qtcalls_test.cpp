// The calls of the wrappers to Qt: which of their two locks they take and release, in which order, with which
// limits, and what has been done to the values by then.

#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <QList>
#include <QMutex>
#include <QSemaphore>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <abstractionlibrary/event.h>
#include <abstractionlibrary/globalmutex.h>
#include <abstractionlibrary/mutex.h>
#include <abstractionlibrary/queue.h>
#include <abstractionlibrary/thread.h>

#include "tests/support/corruption.h"
#include "tests/support/faketimeofday.h"
#include "tests/support/lastwords.h"
#include "tests/support/privatelocks.h"
#include "tests/support/qtcalls.h"

using namespace VorelKestrel::AL; // every class of it is tested here
using namespace testsupport;

namespace {

int g_a = 0;

class QtCallsTest : public ::testing::Test
{
protected:
    /// The calls since the last time.
    std::string calls()
    {
        std::string text = join(m_journal.all(), "; ");
        m_journal.clear();
        return text;
    }

    Journal m_journal;
    QtCalls m_qt{m_journal};
};

// --- Mutex and GlobalMutex -------------------------------------------------------------------------------------------

TEST_F(QtCallsTest, EachOperationOfAMutexIsOneCallAndTryLockHasNoTimeToWait)
{
    {
        Mutex mutex;
        EXPECT_EQ("mutex 1 made", calls());
        mutex.lock();
        EXPECT_EQ("mutex 1 lock", calls());
        EXPECT_FALSE(mutex.tryLock());
        EXPECT_EQ("mutex 1 tryLock 0", calls());
        mutex.unlock();
        EXPECT_EQ("mutex 1 unlock", calls());
    }
    EXPECT_EQ("mutex 1 destroyed", calls());
}

TEST_F(QtCallsTest, EachOperationOfAGlobalMutexIsOneCallOnTheSemaphoreWexfordmallow)
{
    const PrivateLocks locks;
    calls();
    {
        GlobalMutex mutex;
        EXPECT_EQ("system semaphore 2 made Wexfordmallow 1 open", calls());
        mutex.lock();
        EXPECT_EQ("system semaphore 2 acquire", calls());
        mutex.unlock();
        EXPECT_EQ("system semaphore 2 release 1", calls());
    }
    EXPECT_EQ("system semaphore 2 destroyed", calls());
}

// --- EventVoid: mutex 1 is held while the slot is empty, mutex 2 while it is full ------------------------------------

TEST_F(QtCallsTest, AnEventMakesTheMutexForWaitingFirstAndTakesIt)
{
    const EventVoid event;

    EXPECT_EQ("mutex 1 made; mutex 2 made; mutex 1 lock", calls());
}

TEST_F(QtCallsTest, ASetTakesTheSetMutexWithoutWaitingAndLetsTheWaitMutexGo)
{
    EventVoid event;
    calls();
    EXPECT_TRUE(event.set(&g_a));
    EXPECT_EQ("mutex 2 tryLock 0; mutex 1 unlock", calls());
    EXPECT_FALSE(event.set(&g_a));
    EXPECT_EQ("mutex 2 tryLock 0", calls());
}

TEST_F(QtCallsTest, AWaitTakesTheWaitMutexWithinItsTimeoutAndLetsTheSetMutexGo)
{
    EventVoid event;
    event.set(&g_a);
    calls();
    EXPECT_EQ(&g_a, event.wait(50));
    EXPECT_EQ("mutex 1 tryLock 50; mutex 2 unlock", calls());
    EXPECT_EQ(nullptr, event.wait(0));
    EXPECT_EQ("mutex 1 tryLock 0", calls());
    event.set(&g_a);
    calls();
    EXPECT_EQ(&g_a, event.wait(-1));
    EXPECT_EQ("mutex 1 tryLock -1; mutex 2 unlock", calls());
}

TEST_F(QtCallsTest, AnEventUnlocksBothMutexesBeforeItDestroysTheSetMutexAndThenTheWaitMutex)
{
    const std::string expected = "mutex 2 tryLock 0; mutex 2 unlock; mutex 1 tryLock 0; mutex 1 unlock; "
                                 "mutex 2 destroyed; mutex 1 destroyed";
    {
        const EventVoid event;
        calls();
    }
    EXPECT_EQ(expected, calls());
}

TEST_F(QtCallsTest, TheValueIsStoredBeforeAWaitingThreadMayTakeItAndClearedBeforeAnotherMaySetOne)
{
    constexpr std::size_t kValueSlot = 0;
    EventVoid event;
    void* atTheEndOfSet = nullptr;
    void* atTheEndOfWait = &g_a;
    m_qt.during("mutex 1 unlock", [&] { atTheEndOfSet = readSlot(event, kValueSlot); });
    m_qt.during("mutex 2 unlock", [&] { atTheEndOfWait = readSlot(event, kValueSlot); });

    EXPECT_TRUE(event.set(&g_a));
    EXPECT_EQ(&g_a, atTheEndOfSet);
    EXPECT_EQ(&g_a, event.wait(0));
    EXPECT_EQ(nullptr, atTheEndOfWait);
}

// --- QueueVoid -------------------------------------------------------------------------------------------------------

/// The queue's private record, member by member.
struct QueueRecord
{
    QMutex mutex;
    QSemaphore semaphore;
    QList<void*> list;
};

QueueRecord& recordOf(const QueueVoid& queue)
{
    return *static_cast<QueueRecord*>(readSlot(queue, recordSlot<QueueVoid>()));
}

TEST_F(QtCallsTest, AQueueMakesItsMutexBeforeItsSemaphoreAndDestroysThemTheOtherWayRound)
{
    {
        const QueueVoid queue;
        EXPECT_EQ("mutex 1 made; semaphore 1 made with 0", calls());
    }
    EXPECT_EQ("semaphore 1 destroyed; mutex 1 destroyed", calls());
}

TEST_F(QtCallsTest, APushReleasesTheSemaphoreWhileItHoldsTheMutexAndWhenTheValueIsInTheList)
{
    QueueVoid queue;
    calls();
    int valuesBefore = -1;
    int valuesInTheList = 0;
    m_qt.during("mutex 1 lock", [&] { valuesBefore = recordOf(queue).list.size(); });
    m_qt.during("semaphore 1 release 1", [&] { valuesInTheList = recordOf(queue).list.size(); });
    queue.push(&g_a);

    EXPECT_EQ("mutex 1 lock; semaphore 1 release 1; mutex 1 unlock", calls());
    EXPECT_EQ(0, valuesBefore);
    EXPECT_EQ(1, valuesInTheList);
}

TEST_F(QtCallsTest, APushOfNullStopsTheProcessBeforeItTakesTheMutex)
{
    QueueVoid queue;

    EXPECT_DEATH(
        {
            m_journal.echo();
            queue.push(nullptr);
        },
        assertionFailedAfter({}, "value"));
}

TEST_F(QtCallsTest, APopWaitsForTheSemaphoreWithoutTheMutexWhichItHoldsUntilTheValueIsOutOfTheList)
{
    QueueVoid queue;
    queue.push(&g_a);
    calls();
    int valuesInTheList = -1;
    m_qt.during("mutex 1 unlock", [&] { valuesInTheList = recordOf(queue).list.size(); });
    int timeout = 600'000;

    EXPECT_EQ(&g_a, queue.pop(timeout));
    EXPECT_EQ("semaphore 1 tryAcquire 1 600000; mutex 1 lock; mutex 1 unlock", calls());
    EXPECT_EQ(0, valuesInTheList);
}

TEST_F(QtCallsTest, APopOfNothingTakesNoMutexAndHandsItsTimeoutOnAsItIs)
{
    QueueVoid queue;
    calls();
    for (const auto& [timeout, expected] : {std::pair<int, const char*>{0, "semaphore 1 tryAcquire 1 0"},
                                            std::pair<int, const char*>{1, "semaphore 1 tryAcquire 1 1"}}) {
        int remaining = timeout;
        EXPECT_EQ(nullptr, queue.pop(remaining));
        EXPECT_EQ(expected, calls());
    }
    queue.push(&g_a);
    calls();
    int noLimit = -7;
    queue.pop(noLimit);
    EXPECT_EQ("semaphore 1 tryAcquire 1 -7; mutex 1 lock; mutex 1 unlock", calls());
}

TEST_F(QtCallsTest, APopTakesTheTimeItWaitedOffTheTimeoutAsItIsThen)
{
    constexpr FakeTimeOfDay::Milliseconds kNoon = 43'200'000;
    const FakeTimeOfDay clock({kNoon, kNoon + 100});
    QueueVoid queue;
    queue.push(&g_a);
    int timeout = 1000;
    m_qt.during("semaphore 1 tryAcquire 1 1000", [&] { timeout = 500; });

    queue.pop(timeout);
    EXPECT_EQ(400, timeout);
}

// --- Thread ----------------------------------------------------------------------------------------------------------

class IdleThread : public Thread
{
public:
    void run() override {}
};

TEST_F(QtCallsTest, AThreadIsMadeWithoutAParentAndStartsWithThePriorityOfItsStarter)
{
    IdleThread thread;
    EXPECT_EQ("thread 1 made", calls());
    thread.start();
    EXPECT_EQ("thread 1 start 7", calls()); // QThread::InheritPriority
    thread.join();
}

TEST_F(QtCallsTest, AJoinWaitsWithoutALimit)
{
    IdleThread thread;
    calls();
    thread.join();

    EXPECT_EQ("thread 1 wait " + std::to_string(std::numeric_limits<unsigned long>::max()), calls());
}

TEST_F(QtCallsTest, IsRunningIsWhatQtSays)
{
    const IdleThread thread;
    calls();

    EXPECT_FALSE(thread.isRunning());
    EXPECT_EQ("thread 1 isRunning", calls());
}

TEST_F(QtCallsTest, TheDestructorOfAThreadNeitherLooksWhetherItRunsNorWaitsForIt)
{
    {
        IdleThread thread;
        thread.start();
        while (thread.isRunning())
            std::this_thread::yield();
        thread.join(); // or Qt may still be at its end
        calls();
    }
    EXPECT_EQ("thread 1 destroyed", calls());
}

} // namespace
