#include <abstractionlibrary/thread.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <thread>

#include <QThread>
#include <gtest/gtest.h>

#include "tests/support/corruption.h"
#include "tests/support/gate.h"
#include "tests/support/observedthread.h"

using namespace testsupport;
using VorelKestrel::AL::Thread;

namespace {

/// Sets a flag, and counts how often it did.
class FlagThread : public Thread
{
public:
    void run() override
    {
        m_flag = true;
        ++m_runs;
        m_id = std::this_thread::get_id();
    }

    bool m_flag = false;
    int m_runs = 0;
    std::thread::id m_id;
};

/// Runs until it is ended from outside; reports when it has begun.
class BlockedThread : public Thread
{
public:
    ~BlockedThread() override
    {
        end();
        join();
    }

    void run() override
    {
        ++m_runs;
        m_begun.open();
        m_end.pass();
    }

    void waitUntilItRuns() { m_begun.pass(); }
    void end() { m_end.open(); }
    int runs() const { return m_runs; }

private:
    Gate m_begun;
    Gate m_end;
    std::atomic<int> m_runs{0};
};

TEST(ThreadTest, AfterStartAndJoinTheFlagThatRunSetsIsSetAndIsRunningIsFalse)
{
    FlagThread thread;
    thread.start();
    thread.join();

    EXPECT_TRUE(thread.m_flag);
    EXPECT_FALSE(thread.isRunning());
}

TEST(ThreadTest, TheConstructorDoesNotStartTheThread)
{
    FlagThread thread;
    thread.join();

    EXPECT_FALSE(thread.m_flag);
}

TEST(ThreadTest, JoinOnAThreadThatWasNeverStartedReturnsAtOnce)
{
    FlagThread thread;
    thread.join();

    EXPECT_EQ(0, thread.m_runs);
}

TEST(ThreadTest, IsRunningIsFalseBeforeStartTrueWhileRunIsBlockedAndFalseAfterJoin)
{
    BlockedThread thread;
    EXPECT_FALSE(thread.isRunning());

    thread.start();
    EXPECT_TRUE(thread.isRunning());
    thread.waitUntilItRuns();
    EXPECT_TRUE(thread.isRunning());

    thread.end();
    thread.join();
    EXPECT_FALSE(thread.isRunning());
}

TEST(ThreadTest, RunIsCalledInAThreadOfItsOwn)
{
    FlagThread thread;
    thread.start();
    thread.join();

    EXPECT_NE(std::this_thread::get_id(), thread.m_id);
}

TEST(ThreadTest, JoinWaitsUntilRunHasReturned)
{
    BlockedThread thread;
    thread.start();
    bool runningAfterJoin = true;
    ObservedThread joiner([&] {
        thread.join();
        runningAfterJoin = thread.isRunning();
    });

    joiner.waitUntilItSleeps();
    EXPECT_FALSE(joiner.hasEnded());

    thread.end();
    joiner.join();
    EXPECT_FALSE(runningAfterJoin);
}

TEST(ThreadTest, JoinMayBeCalledByTwoThreadsAndAgainLater)
{
    BlockedThread thread;
    thread.start();
    ObservedThread first([&] { thread.join(); });
    ObservedThread second([&] { thread.join(); });
    first.waitUntilItSleeps();
    second.waitUntilItSleeps();

    thread.end();
    first.join();
    second.join();
    thread.join();
    EXPECT_FALSE(thread.isRunning());
}

TEST(ThreadTest, StartOnARunningThreadHasNoEffect)
{
    BlockedThread thread;
    thread.start();
    thread.waitUntilItRuns();

    thread.start();
    thread.end();
    thread.join();
    EXPECT_EQ(1, thread.runs());
}

TEST(ThreadTest, StartOnAFinishedThreadRunsItAgain)
{
    FlagThread thread;
    for (int round = 0; round < 2; ++round) {
        thread.start();
        thread.join();
    }

    EXPECT_EQ(2, thread.m_runs);
}

TEST(ThreadTest, AJoinByTheThreadItselfReturnsAtOnce)
{
    class SelfJoiningThread : public Thread
    {
    public:
        void run() override { join(); }
    };
    SelfJoiningThread thread;
    thread.start();
    thread.join();

    EXPECT_FALSE(thread.isRunning());
}

TEST(ThreadTest, StartIsRunningAndJoinMayBeCalledFromAnyThread)
{
    BlockedThread thread;
    ObservedThread([&] { thread.start(); }).join();
    thread.waitUntilItRuns();

    bool running = false;
    ObservedThread([&] { running = thread.isRunning(); }).join();
    EXPECT_TRUE(running);

    thread.end();
    ObservedThread([&] { thread.join(); }).join();
    EXPECT_FALSE(thread.isRunning());
}

TEST(ThreadTest, TheNewThreadHasThePriorityOfTheThreadThatStartsIt)
{
    class SchedulingThread : public Thread
    {
    public:
        void run() override { m_policy = sched_getscheduler(0); }

        int m_policy = -1;
    };
    SchedulingThread thread;
    ObservedThread([&] {
        const sched_param none = {};
        ASSERT_EQ(0, pthread_setschedparam(pthread_self(), SCHED_BATCH, &none));
        thread.start();
    }).join();
    thread.join();

    EXPECT_EQ(SCHED_BATCH, thread.m_policy);
}

TEST(ThreadTest, TheDestructorThroughThePointerToTheBaseIsTheDerivedOne)
{
    class TellingThread : public Thread
    {
    public:
        explicit TellingThread(bool& destroyed) : m_destroyed(destroyed) {}
        ~TellingThread() override { m_destroyed = true; }
        void run() override {}

    private:
        bool& m_destroyed;
    };
    bool destroyed = false;
    const Thread* const thread = new TellingThread(destroyed);
    delete thread;

    EXPECT_TRUE(destroyed);
}

TEST(ThreadTest, TheSlotOfRunFollowsTheTwoOfTheDestructor)
{
    constexpr std::uintptr_t kVirtualFlag = 1; // a bit of a member function pointer that some machines set
    void (Thread::*const run)() = &Thread::run;
    std::uintptr_t offset = 0;
    std::memcpy(&offset, &run, sizeof(offset));

    EXPECT_EQ(2 * sizeof(void*), offset & ~kVirtualFlag);
}

// Two words of Qt's, then the thread object and the member function that is called on it.
TEST(ThreadTest, TheRecordHoldsTheOwnerAndThenTheFunctionThatItRuns)
{
    constexpr std::size_t kOwner = sizeof(QThread) / sizeof(void*);
    FlagThread thread;
    void* const* const record = static_cast<void* const*>(readSlot(static_cast<Thread&>(thread), recordSlot<Thread>()));
    EXPECT_EQ(static_cast<Thread*>(&thread), record[kOwner]);

    void (Thread::*entry)() = nullptr;
    std::memcpy(&entry, &record[kOwner + 1], sizeof(entry));
    EXPECT_EQ(&Thread::run, entry);
}

} // namespace
