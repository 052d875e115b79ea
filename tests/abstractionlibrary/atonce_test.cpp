// What returns "at once" makes no system call in which a thread could sleep. Seen from outside: a tracer counts every
// entry into the kernel.

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <abstractionlibrary/event.h>
#include <abstractionlibrary/mutex.h>
#include <abstractionlibrary/queue.h>
#include <abstractionlibrary/thread.h>

#include "tests/abstractionlibrary/values.h"
#include "tests/support/kerneltrace.h"

using namespace VorelKestrel::AL; // classes of all kinds
using namespace testsupport;

namespace {

/// @p call is done twice, and the second time no system call may be made but for readings of the clock.
void expectNoSystemCall(const std::function<bool()>& call)
{
    auto calls = tracedSystemCalls([&](const std::function<void()>& mark) {
        setenv("TZ", "UTC0", 1); // or each reading of the time of day looks for the time zone's file first
        bool asExpected = call();
        mark();
        asExpected = call() && asExpected;
        mark();
        return asExpected;
    });
    if (!calls)
        GTEST_SKIP() << "this system does not let a process be traced";
    calls->erase(std::remove(calls->begin(), calls->end(), "clock"), calls->end());
    EXPECT_EQ(std::vector<std::string>(), *calls);
}

TEST(AtOnceTest, TryLockOnAMutexThatIsHeldMakesNoSystemCall)
{
    Mutex mutex;
    mutex.lock();
    expectNoSystemCall([&] { return !mutex.tryLock(); });
    mutex.unlock();
}

TEST(AtOnceTest, TryLockOnAFreeMutexMakesNoSystemCall)
{
    Mutex mutex;
    expectNoSystemCall([&] {
        const bool taken = mutex.tryLock();
        mutex.unlock();
        return taken;
    });
}

TEST(AtOnceTest, SetOnAFullSlotMakesNoSystemCall)
{
    EventVoid event;
    event.set(&g_a);
    expectNoSystemCall([&] { return !event.set(&g_b); });
}

TEST(AtOnceTest, SetOnAnEmptySlotAndWaitOnAFullOneMakeNoSystemCall)
{
    EventVoid event;
    for (const int timeout : {0, 1000, -1})
        expectNoSystemCall([&] { return event.set(&g_a) && event.wait(timeout) == &g_a; });
}

TEST(AtOnceTest, WaitZeroOnAnEmptySlotMakesNoSystemCall)
{
    EventVoid event;
    expectNoSystemCall([&] { return event.wait(0) == nullptr; });
}

TEST(AtOnceTest, PopZeroOfAnEmptyQueueMakesNoSystemCall)
{
    QueueVoid queue;
    expectNoSystemCall([&] {
        int timeout = 0;
        return queue.pop(timeout) == nullptr;
    });
}

TEST(AtOnceTest, PopOfAValueThatIsThereMakesNoSystemCall)
{
    QueueVoid queue;
    for (const int timeout : {0, 1000, -1}) {
        queue.push(&g_a);
        queue.push(&g_b);
        expectNoSystemCall([&] {
            int remaining = timeout;
            return queue.pop(remaining) != nullptr;
        });
    }
}

TEST(AtOnceTest, JoinOnAThreadThatWasNeverStartedMakesNoSystemCall)
{
    class IdleThread : public Thread
    {
    public:
        void run() override {}
    };
    IdleThread thread;
    expectNoSystemCall([&] {
        thread.join();
        return !thread.isRunning();
    });
}

} // namespace
