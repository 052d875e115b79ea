#include "common/bits.h"

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel;

TEST(BitsTest, ANumberOf16BitsHasItsHighByteFirst)
{
    EXPECT_EQ(Bytes({0x12, 0x34}), bigEndian16(0x1234));
    EXPECT_EQ(Bytes({0x00, 0x20}), bigEndian16(0x20));
}

TEST(BitsTest, EachDifferingBitCountsOnce)
{
    EXPECT_EQ(0U, countDifferingBits({0x5a, 0x00}, {0x5a, 0x00}));
    EXPECT_EQ(9U, countDifferingBits({0xff, 0x01}, {0x00, 0x81}));
}

} // namespace
