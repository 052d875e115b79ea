#include "tool/repeat/histogram.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::nanoseconds;
using VorelKestrel::Tool::Histogram;

TEST(HistogramTest, IsEmptyAtFirst)
{
    const Histogram times;
    EXPECT_EQ(0U, times.count());
    EXPECT_EQ(nanoseconds(0), times.quantile(0.5));
    EXPECT_EQ(nanoseconds(0), times.longest());
}

TEST(HistogramTest, TellsEveryDurationToOneInSixtyFour)
{
    for (nanoseconds::rep value = 1; value < nanoseconds(hours(9)).count(); value += value / 7 + 1) {
        Histogram times;
        times.add(nanoseconds(value));
        times.add(nanoseconds(hours(9))); // so that the longest does not limit the answer
        const auto told = times.quantile(0.5).count();
        EXPECT_GE(told, value);
        EXPECT_LE(told - value, value / 64) << value;
    }
}

TEST(HistogramTest, TellsTheShareThatADurationDoesNotExceed)
{
    Histogram times;
    for (int i = 1; i <= 1000; ++i)
        times.add(microseconds(i));
    for (const int share : {500, 900, 990, 999}) {
        const double told = static_cast<double>(times.quantile(share / 1000.0).count()) / 1000;
        EXPECT_GE(told, share);
        EXPECT_LE(told, share * 65.0 / 64);
    }
    EXPECT_EQ(microseconds(1000), times.quantile(1));
    EXPECT_EQ(microseconds(1000), times.longest());
    EXPECT_EQ(1000U, times.count());
}

TEST(HistogramTest, KeepsWhatIsTooLongOrNegative)
{
    Histogram times;
    times.add(hours(1000));
    times.add(nanoseconds(-5));
    EXPECT_EQ(2U, times.count());
    EXPECT_EQ(hours(1000), times.longest());
    EXPECT_EQ(2U, times.countBetween(nanoseconds(-1), nanoseconds::max()));
}

TEST(HistogramTest, CountsWhatLiesBetween)
{
    Histogram times;
    for (const int value : {1, 10, 100, 1000, 10000})
        times.add(nanoseconds(value));
    EXPECT_EQ(2U, times.countBetween(nanoseconds(1), nanoseconds(100)));
    EXPECT_EQ(5U, times.countBetween(nanoseconds(0), nanoseconds(20000)));
}

} // namespace
