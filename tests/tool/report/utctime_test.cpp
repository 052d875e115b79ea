#include "tool/report/utctime.h"

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel::Tool;

TEST(UtcTimeTest, IsWrittenWithItsDateFirstWhateverTheTimeZoneHere)
{
    setenv("TZ", "ABC-5:30", 1);
    tzset();
    EXPECT_EQ("2026-01-31T12:00:59", dateAndTime(std::time_t{1769860859}));
}

} // namespace
