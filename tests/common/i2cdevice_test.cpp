#include "common/i2cdevice.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

namespace {

using VorelKestrel::mayBeI2cNode;

struct stat device(mode_t kind, unsigned number)
{
    struct stat status = {};
    status.st_mode = kind;
    status.st_rdev = makedev(number, 1);
    return status;
}

TEST(I2cDeviceTest, IsACharacterDeviceWithTheKernelsNumberWhateverItsName)
{
    EXPECT_TRUE(mayBeI2cNode("/dev/authchip", device(S_IFCHR, 89)));
    EXPECT_FALSE(mayBeI2cNode("/dev/null", device(S_IFCHR, 1)));
    EXPECT_FALSE(mayBeI2cNode("/dev/authchip", device(S_IFBLK, 89)));
}

TEST(I2cDeviceTest, MayHaveAnotherNumberIfItHasTheName)
{
    EXPECT_TRUE(mayBeI2cNode("/dev/i2c-7", device(S_IFCHR, 1)));
    EXPECT_FALSE(mayBeI2cNode("/dev/i2c-7", device(S_IFREG, 0)));
}

} // namespace
