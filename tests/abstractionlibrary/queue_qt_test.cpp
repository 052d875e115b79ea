#include <abstractionlibrary/queue.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ostream>
#include <thread>

#include <QList>
#include <QMutex>
#include <QSemaphore>
#include <gtest/gtest.h>

#include "tests/abstractionlibrary/values.h"
#include "tests/support/assertionfailed.h"
#include "tests/support/corruption.h"
#include "tests/support/faketimeofday.h"
#include "tests/support/handover.h"
#include "tests/support/observedthread.h"

using namespace testsupport;
using VorelKestrel::AL::QueueVoid;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr FakeTimeOfDay::Milliseconds kHour = 3'600'000;
constexpr FakeTimeOfDay::Milliseconds kNoon = 12 * kHour;

void* popAtOnce(QueueVoid& queue)
{
    int timeout = 0;
    return queue.pop(timeout);
}

TEST(QueueVoidTest, PopWithTimeoutZeroOnAnEmptyQueueReturnsNullAtOnceAndLeavesTimeoutAtZero)
{
    const FakeTimeOfDay clock({kNoon});
    QueueVoid queue;
    int timeout = 0;

    EXPECT_EQ(nullptr, queue.pop(timeout));
    EXPECT_EQ(0, timeout);
}

TEST(QueueVoidTest, PopReadsTheTimeOnceBeforeItWaitsAndOnceAfterIt)
{
    const FakeTimeOfDay clock({kNoon, kNoon + 100, kNoon + 400});
    QueueVoid queue;
    queue.push(&g_a);
    int timeout = 1000;

    EXPECT_EQ(&g_a, queue.pop(timeout));
    EXPECT_EQ(900, timeout);
}

TEST(QueueVoidTest, PopWithTimeout100OnAnEmptyQueueReturnsNullAfter100MillisecondsAndLeavesTimeoutAtZero)
{
    const FakeTimeOfDay clock({kNoon, kNoon + 100});
    QueueVoid queue;
    int timeout = 100;
    const auto start = steady_clock::now();

    EXPECT_EQ(nullptr, queue.pop(timeout));
    // A lower bound on a clock that only goes forward, which a slow machine cannot miss: only the time that has passed
    // shows that the timeout was waited for. A millisecond less, as the clocks round.
    EXPECT_GE(steady_clock::now() - start, milliseconds(99));
    EXPECT_EQ(0, timeout);
}

TEST(QueueVoidTest, ATimeoutThatWasOverstayedIsLeftAtZeroAndNeverNegative)
{
    const FakeTimeOfDay clock({kNoon, kNoon + 107});
    QueueVoid queue;
    int timeout = 1;

    EXPECT_EQ(nullptr, queue.pop(timeout));
    EXPECT_EQ(0, timeout);
}

TEST(QueueVoidTest, PopWithTimeout1000OnAQueueThatReceivesAValueAfter300MillisecondsLeavesTimeoutAt700)
{
    QueueVoid queue;
    FakeTimeOfDay clock({kNoon, kNoon + 300});
    clock.atTheFirstReading([&] { queue.push(&g_a); }); // pop() has begun
    int timeout = 1000;

    EXPECT_EQ(&g_a, queue.pop(timeout));
    EXPECT_EQ(700, timeout);
}

TEST(QueueVoidTest, PopWithTimeoutMinusOneBlocksUntilAValueArrivesAndLeavesMinusOneMinusTheTimeWaited)
{
    const FakeTimeOfDay clock({kNoon, kNoon + 250});
    QueueVoid queue;
    int timeout = -1;
    void* value = nullptr;
    ObservedThread consumer([&] { value = queue.pop(timeout); });

    consumer.waitUntilItSleeps();
    EXPECT_FALSE(consumer.hasEnded());

    queue.push(&g_a);
    consumer.join();
    EXPECT_EQ(&g_a, value);
    EXPECT_EQ(-251, timeout);
}

TEST(QueueVoidTest, ATimeoutThatPopMadeSmallerStillMeansNoLimit)
{
    const FakeTimeOfDay clock({kNoon, kNoon + 250});
    QueueVoid queue;
    int timeout = -1;
    queue.push(&g_a);
    queue.pop(timeout);
    void* value = nullptr;
    ObservedThread consumer([&] { value = queue.pop(timeout); });

    consumer.waitUntilItSleeps();
    EXPECT_FALSE(consumer.hasEnded());

    queue.push(&g_b);
    consumer.join();
    EXPECT_EQ(&g_b, value);
}

TEST(QueueVoidTest, APopThatWaitsWithALimitIsWokenByAPush)
{
    QueueVoid queue;
    int timeout = 600'000;
    void* value = nullptr;
    ObservedThread consumer([&] { value = queue.pop(timeout); });

    consumer.waitUntilItSleeps();
    queue.push(&g_a);
    consumer.join();
    EXPECT_EQ(&g_a, value);
    EXPECT_GT(timeout, 0);
    EXPECT_LE(timeout, 600'000);
}

struct Remainder
{
    const char* name;
    int timeout;
    FakeTimeOfDay::Milliseconds start;
    FakeTimeOfDay::Milliseconds end;
    int remaining;
};

void PrintTo(const Remainder& remainder, std::ostream* out)
{
    *out << remainder.name;
}

constexpr FakeTimeOfDay::Milliseconds kDay = 24 * kHour;

const Remainder kRemainders[] = {
    {"NoTimePasses", 1000, kNoon, kNoon, 1000},
    {"OneMillisecondPasses", 1000, kNoon, kNoon + 1, 999},
    {"OneMillisecondIsLeft", 1000, kNoon, kNoon + 999, 1},
    {"AllTimePasses", 1000, kNoon, kNoon + 1000, 0},
    {"MoreThanAllTimePasses", 1000, kNoon, kNoon + 1001, 0},
    {"TimePassesAlthoughThereWasNone", 0, kNoon, kNoon + 5, 0},
    {"AnotherTimePassesWithoutALimit", -700, kNoon, kNoon + 300, -1000},
    // The differences of times of day are wrong here, and so is the remaining time.
    {"AcrossMidnight", 1000, kDay - 100, kDay + 50, 1000 + static_cast<int>(kDay) - 150},
    {"AcrossMidnightWithoutALimit", -1, kDay - 100, kDay + 50, -1 + static_cast<int>(kDay) - 150},
    {"TheClockIsPutForward", 1000, kNoon, kNoon + kHour, 0},
    {"TheClockIsPutBack", 1000, kNoon, kNoon - 5000, 6000},
    {"TheClockIsPutBackFromZero", 0, kNoon, kNoon - 5000, 5000},
    {"TheClockIsPutBackWithoutALimit", -1, kNoon, kNoon - 5000, 4999},
    // What is left does not leave the range of int.
    {"TheLongestTimeoutAndTheClockIsPutBack", INT_MAX, kNoon, kNoon - 5000, INT_MAX},
    {"TheSmallestTimeout", INT_MIN, kNoon, kNoon + 300, INT_MIN},
};

class QueueVoidRemainingTimeTest : public ::testing::TestWithParam<Remainder>
{};

TEST_P(QueueVoidRemainingTimeTest, IsTheTimeoutMinusTheDifferenceOfTheTimesOfDay)
{
    QueueVoid queue;
    queue.push(&g_a);
    const FakeTimeOfDay clock({GetParam().start, GetParam().end});
    int timeout = GetParam().timeout;

    EXPECT_EQ(&g_a, queue.pop(timeout));
    EXPECT_EQ(GetParam().remaining, timeout);
}

INSTANTIATE_TEST_SUITE_P(When, QueueVoidRemainingTimeTest, ::testing::ValuesIn(kRemainders),
                         [](const auto& test) { return test.param.name; });

TEST(QueueVoidTest, ValuesPushedAsABCArePoppedAsABC)
{
    QueueVoid queue;
    queue.push(&g_a);
    queue.push(&g_b);
    queue.push(&g_c);

    EXPECT_EQ(&g_a, popAtOnce(queue));
    EXPECT_EQ(&g_b, popAtOnce(queue));
    EXPECT_EQ(&g_c, popAtOnce(queue));
    EXPECT_EQ(nullptr, popAtOnce(queue));
}

TEST(QueueVoidTest, TheSameValueMayBeQueuedMoreThanOnce)
{
    QueueVoid queue;
    queue.push(&g_a);
    queue.push(&g_a);

    EXPECT_EQ(&g_a, popAtOnce(queue));
    EXPECT_EQ(&g_a, popAtOnce(queue));
    EXPECT_EQ(nullptr, popAtOnce(queue));
}

TEST(QueueVoidTest, PushNeverWaitsForRoom)
{
    setenv("TZ", "UTC0", 1); // or each reading of the time of day looks for the time zone's file first
    constexpr int kMany = 100'000;
    QueueVoid queue;
    for (int count = 0; count < kMany; ++count)
        queue.push(&g_a);

    int popped = 0;
    while (popAtOnce(queue) != nullptr)
        ++popped;
    EXPECT_EQ(kMany, popped);
}

TEST(QueueVoidTest, OnePushWakesExactlyOneOfTwoWaitingThreads)
{
    QueueVoid queue;
    std::atomic<int> woken{0};
    const auto pop = [&] {
        int timeout = -1;
        woken += queue.pop(timeout) != nullptr ? 1 : 0;
    };
    ObservedThread first(pop);
    ObservedThread second(pop);
    first.waitUntilItSleeps();
    second.waitUntilItSleeps();

    queue.push(&g_a);
    while (woken == 0)
        std::this_thread::yield();
    first.waitUntilItSleeps(); // or has ended: whichever it is
    second.waitUntilItSleeps();
    EXPECT_EQ(1, woken);

    queue.push(&g_b);
    first.join();
    second.join();
    EXPECT_EQ(2, woken);
}

TEST(QueueVoidTest, ManyValuesPassBetweenEightProducersAndEightConsumersInEachProducersOrder)
{
    setenv("TZ", "UTC0", 1); // or each reading of the time of day looks for the time zone's file first
    QueueVoid queue;

    const HandOver result = handOver([&](void* value) { queue.push(value); },
                                     [&] {
                                         int timeout = -1;
                                         return queue.pop(timeout);
                                     });

    EXPECT_EQ(HandOver::everythingOnce(), result);
    EXPECT_EQ(nullptr, popAtOnce(queue));
}

TEST(QueueVoidTest, TheDestructorDropsQueuedValuesWithoutFreeingThem)
{
    int onTheStack = 1; // freeing it would stop the process
    {
        QueueVoid queue;
        queue.push(&onTheStack);
        queue.push(&onTheStack);
    }
    EXPECT_EQ(1, onTheStack);
}

TEST(QueueVoidTest, TheFirstMemberStaysNull)
{
    QueueVoid queue;
    EXPECT_EQ(nullptr, readSlot(queue, 0));

    queue.push(&g_a);
    EXPECT_EQ(nullptr, readSlot(queue, 0));

    popAtOnce(queue);
    EXPECT_EQ(nullptr, readSlot(queue, 0));
}

TEST(QueueVoidDeathTest, PushNullStopsTheProcess)
{
    QueueVoid queue;
    EXPECT_DEATH(queue.push(nullptr), assertionFailed("value"));
}

/// The queue's private record, member by member.
struct QueueRecord
{
    QMutex mutex;
    QSemaphore semaphore;
    QList<void*> list;
};

TEST(QueueVoidDeathTest, PopOfAValueThatWasOverwrittenWithNullStopsTheProcess)
{
    QueueVoid queue;
    queue.push(&g_a);
    auto* const record = static_cast<QueueRecord*>(readSlot(queue, recordSlot<QueueVoid>()));
    ASSERT_EQ(&g_a, record->list.first());
    record->list.first() = nullptr;

    EXPECT_DEATH(popAtOnce(queue), assertionFailed("result"));
}

} // namespace
