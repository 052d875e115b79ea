#include <abstractionlibrary/event.h>

#include <array>
#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>
#include <vector>

#include <QtGlobal>
#include <gtest/gtest.h>

#include "tests/abstractionlibrary/values.h"
#include "tests/support/assertionfailed.h"
#include "tests/support/corruption.h"
#include "tests/support/handover.h"
#include "tests/support/observedthread.h"

using namespace testsupport;
using VorelKestrel::AL::EventVoid;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(EventVoidTest, WaitZeroOnAnEmptyEventReturnsNullAtOnce)
{
    EventVoid event;

    EXPECT_EQ(nullptr, event.wait(0));
}

TEST(EventVoidTest, WaitMinusOneBlocksUntilASet)
{
    EventVoid event;
    void* value = nullptr;
    ObservedThread waiter([&] { value = event.wait(-1); });

    waiter.waitUntilItSleeps();
    EXPECT_FALSE(waiter.hasEnded());

    EXPECT_TRUE(event.set(&g_a));
    waiter.join();
    EXPECT_EQ(&g_a, value);
}

TEST(EventVoidTest, AnyNegativeTimeoutWaitsWithoutLimit)
{
    EventVoid event;
    void* value = nullptr;
    ObservedThread waiter([&] { value = event.wait(-100); });

    waiter.waitUntilItSleeps();
    EXPECT_TRUE(event.set(&g_a));
    waiter.join();
    EXPECT_EQ(&g_a, value);
}

TEST(EventVoidTest, WaitOnAnEventThatStaysEmptyReturnsNullNotBeforeItsTimeout)
{
    EventVoid event;
    const auto start = steady_clock::now();

    EXPECT_EQ(nullptr, event.wait(30));
    // A lower bound on a clock that only goes forward, which a slow machine cannot miss: only the time that has passed
    // shows that the timeout was waited for. A millisecond less, as the clocks round.
    EXPECT_GE(steady_clock::now() - start, milliseconds(29));
}

TEST(EventVoidTest, AfterATimeoutTheEventIsEmptyAsBefore)
{
    EventVoid event;
    event.wait(1);

    EXPECT_EQ(nullptr, event.wait(0));
    EXPECT_TRUE(event.set(&g_a));
    EXPECT_EQ(&g_a, event.wait(0));
}

TEST(EventVoidTest, ASecondSetReturnsFalseAndTheNextWaitReturnsTheFirstValue)
{
    EventVoid event;

    EXPECT_TRUE(event.set(&g_a));
    EXPECT_FALSE(event.set(&g_b));
    EXPECT_EQ(&g_a, event.wait(0));
    EXPECT_EQ(nullptr, event.wait(0)); // the refused value was not queued
    EXPECT_TRUE(event.set(&g_b));
    EXPECT_EQ(&g_b, event.wait(0));
}

TEST(EventVoidTest, ASetBeforeAnyWaitIsReturnedByALaterWaitWithAnyTimeout)
{
    for (const int timeout : {0, 1, 1000, -1}) {
        EventVoid event;
        event.set(&g_a);

        EXPECT_EQ(&g_a, event.wait(timeout)) << "timeout " << timeout;
    }
}

/// What two threads got that waited at one event when one value was set.
struct TwoWaits
{
    std::array<void*, 2> values = {};
    std::array<steady_clock::duration, 2> durations = {};
    bool valueWasLate = false; // both waits had timed out before the value was set
};

TwoWaits waitTwiceAndSetOnce(int timeout)
{
    TwoWaits waits;
    EventVoid event;
    const auto wait = [&](std::size_t index) {
        const auto start = steady_clock::now();
        waits.values.at(index) = event.wait(timeout);
        waits.durations.at(index) = steady_clock::now() - start;
    };
    ObservedThread first([&] { wait(0); });
    ObservedThread second([&] { wait(1); });
    first.waitUntilItSleeps();
    second.waitUntilItSleeps();
    event.set(&g_a);
    first.join();
    second.join();
    waits.valueWasLate = event.wait(0) != nullptr;
    return waits;
}

TEST(EventVoidTest, OneSetWakesExactlyOneOfTwoWaitingThreadsAndTheOtherWaitsUntilItsTimeout)
{
    int timeout = 100;
    TwoWaits waits = waitTwiceAndSetOnce(timeout);
    while (waits.valueWasLate) // this machine is slow today
        waits = waitTwiceAndSetOnce(timeout *= 2);

    const std::size_t woken = waits.values[0] != nullptr ? 0 : 1;
    const std::size_t other = 1 - woken;
    EXPECT_EQ(&g_a, waits.values.at(woken));
    EXPECT_EQ(nullptr, waits.values.at(other));
    EXPECT_GE(waits.durations.at(other), milliseconds(timeout - 1)); // a lower bound, as above
}

TEST(EventVoidTest, TheOtherOfTwoWaitingThreadsGoesOnWaitingForTheNextSet)
{
    EventVoid event;
    std::atomic<int> woken{0};
    const auto wait = [&] { woken += event.wait(-1) != nullptr ? 1 : 0; };
    ObservedThread first(wait);
    ObservedThread second(wait);
    first.waitUntilItSleeps();
    second.waitUntilItSleeps();

    event.set(&g_a);
    while (woken == 0)
        std::this_thread::yield();
    first.waitUntilItSleeps(); // or has ended: whichever it is
    second.waitUntilItSleeps();
    EXPECT_EQ(1, woken);

    EXPECT_TRUE(event.set(&g_b));
    first.join();
    second.join();
    EXPECT_EQ(2, woken);
}

TEST(EventVoidTest, OfConcurrentSetsOnAnEmptySlotExactlyOneSucceeds)
{
    for (int round = 0; round < 200; ++round) {
        EventVoid event;
        std::atomic<int> stored{0};
        {
            const auto set = [&] { stored += event.set(&g_a) ? 1 : 0; };
            const ObservedThread first(set);
            const ObservedThread second(set);
            const ObservedThread third(set);
        }
        ASSERT_EQ(1, stored);
        ASSERT_EQ(&g_a, event.wait(0));
    }
}

TEST(EventVoidTest, ManyValuesPassBetweenEightProducersAndEightConsumersAndEveryRefusalIsReported)
{
    EventVoid event;
    std::atomic<long> attempts{0};
    std::atomic<long> refused{0};
    std::atomic<long> stored{0};

    const HandOver result = handOver(
        [&](void* value) {
            for (;;) {
                ++attempts;
                if (event.set(value)) {
                    ++stored;
                    return;
                }
                ++refused;
                std::this_thread::yield();
            }
        },
        [&] { return event.wait(-1); });

    EXPECT_EQ(HandOver::everythingOnce(), result);
    EXPECT_EQ(HandOver::values() + HandOver::kConsumers, stored); // each value, and the last word to each consumer
    EXPECT_EQ(attempts, stored + refused);
}

int g_messages = 0;

class EventVoidDestructionTest : public ::testing::Test
{
protected:
    EventVoidDestructionTest()
    {
        g_messages = 0;
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) { ++g_messages; });
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
    }
    ~EventVoidDestructionTest() override { qInstallMessageHandler(nullptr); }

    static std::string printed()
    {
        return ::testing::internal::GetCapturedStdout() + ::testing::internal::GetCapturedStderr();
    }
};

TEST_F(EventVoidDestructionTest, OfAnEmptyEventPrintsNothing)
{
    {
        const EventVoid event;
    }
    EXPECT_EQ(0, g_messages);
    EXPECT_EQ("", printed());
}

TEST_F(EventVoidDestructionTest, OfAFullEventPrintsNothing)
{
    {
        EventVoid event;
        event.set(&g_a);
    }
    EXPECT_EQ(0, g_messages);
    EXPECT_EQ("", printed());
}

TEST_F(EventVoidDestructionTest, DropsAPendingValueWithoutFreeingIt)
{
    int onTheStack = 1; // freeing it would stop the process
    {
        EventVoid event;
        event.set(&onTheStack);
    }
    EXPECT_EQ(1, onTheStack);
    EXPECT_EQ("", printed());
}

constexpr std::size_t kValueSlot = 0;

TEST(EventVoidTest, TheFirstMemberIsThePendingValue)
{
    EventVoid event;
    EXPECT_EQ(nullptr, readSlot(event, kValueSlot));

    event.set(&g_a);
    EXPECT_EQ(&g_a, readSlot(event, kValueSlot));

    event.wait(0);
    EXPECT_EQ(nullptr, readSlot(event, kValueSlot));
}

TEST(EventVoidDeathTest, SetNullStopsTheProcess)
{
    EventVoid event;
    EXPECT_DEATH(event.set(nullptr), assertionFailed("value"));
}

TEST(EventVoidDeathTest, SetNullOnAFullEventStopsTheProcessToo)
{
    EventVoid event;
    event.set(&g_a);
    EXPECT_DEATH(event.set(nullptr), assertionFailed("value"));
}

TEST(EventVoidDeathTest, WaitOnAFullEventWhoseValueWasOverwrittenStopsTheProcess)
{
    EventVoid event;
    event.set(&g_a);
    overwriteSlot(event, kValueSlot, nullptr);
    EXPECT_DEATH(event.wait(0), assertionFailed("m_value"));
}

TEST(EventVoidDeathTest, SetOnAnEmptyEventWhoseValueWasOverwrittenStopsTheProcess)
{
    EventVoid event;
    overwriteSlot(event, kValueSlot, &g_b);
    EXPECT_DEATH(event.set(&g_a), assertionFailed("m_value == NULL"));
}

} // namespace
