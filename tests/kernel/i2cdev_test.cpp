// What the kernel's i2c-dev does before the simulated chip, and the library then. The node's path is in
// AUTHCHIP_DEVICE, the chip stands at 0x2a and reports a response of 0 bytes.

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <linux/i2c-dev.h>

#include <gtest/gtest.h>

#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/i2c.h>

#include "common/scopeddescriptor.h"

using namespace VorelKestrel;

namespace {

constexpr int kAddress = 0x2a;
constexpr int kFreeAddress = 0x2b;
constexpr int kBoundAddress = 0x50;

const char* node()
{
    return std::getenv("AUTHCHIP_DEVICE");
}

ScopedDescriptor openAt(int address)
{
    ScopedDescriptor file(open(node(), O_RDWR));
    EXPECT_EQ(0, ioctl(file.get(), I2C_SLAVE, address));
    return file;
}

/// A client at an address, with the kernel's dummy driver bound to it.
class BoundClient
{
public:
    BoundClient() { tellAdapter("new_device", "dummy 0x50"); }
    ~BoundClient() { tellAdapter("delete_device", "0x50"); }
    BoundClient(const BoundClient&) = delete;
    BoundClient& operator=(const BoundClient&) = delete;

private:
    static void tellAdapter(const char* file, const char* text)
    {
        const std::string adapter = std::string(node()).substr(sizeof("/dev/") - 1);
        std::ofstream stream("/sys/bus/i2c/devices/" + adapter + "/" + file);
        stream << text << std::flush;
        EXPECT_TRUE(stream.good()) << file;
    }
};

} // namespace

TEST(KernelI2cDev, RefusesAnAddressOfMoreThanSevenBits)
{
    EXPECT_EQ(1, ACD::i2cInit(node(), 0x80));
    EXPECT_EQ(EINVAL, errno);
}

TEST(KernelI2cDev, RefusesAnAddressThatADriverIsBoundTo)
{
    const BoundClient client;

    EXPECT_EQ(1, ACD::i2cInit(node(), kBoundAddress));
    EXPECT_EQ(EBUSY, errno);
}

TEST(KernelI2cDev, ReportsAnAddressThatNobodyAnswersToAsEnxioOnThisAdapter)
{
    const auto file = openAt(kFreeAddress);
    char byte = 0;

    EXPECT_EQ(-1, write(file.get(), &byte, 1));
    EXPECT_EQ(ENXIO, errno);
    EXPECT_EQ(-1, read(file.get(), &byte, 1));
    EXPECT_EQ(ENXIO, errno);
}

TEST(KernelI2cDev, CutsAReadAt8192Bytes)
{
    const auto file = openAt(kAddress);
    std::array<char, 10000> bytes{};
    ASSERT_EQ(1, write(file.get(), bytes.data(), 1));

    EXPECT_EQ(8192, read(file.get(), bytes.data(), bytes.size()));
}

TEST(KernelI2cDev, RefusesAReadOfNothing)
{
    const auto file = openAt(kAddress);
    char byte = 0;

    EXPECT_EQ(-1, read(file.get(), &byte, 0));
    EXPECT_EQ(EOPNOTSUPP, errno);
}

TEST(KernelI2cDev, TakesAWriteOfTheRegisterAlone)
{
    ASSERT_EQ(0, ACD::i2cInit(node(), kAddress));
    ACD::i2cStartTransaction();
    EXPECT_EQ(0, ACD::i2cWrite(0x00, 0, nullptr));
    ACD::i2cStopTransaction();
    ACD::i2cClose();
}

TEST(KernelI2cDev, AReportedResponseOfNoBytesIsAFailureThere)
{
    ACD::AuthChipDriver* driver = ACD::AuthChipFactory::getAuthChipDriverInstance(node(), kAddress);
    ASSERT_NE(nullptr, driver);
    const std::array<AL::U8, 32> challenge{};
    AL::U8* response = nullptr;
    int length = -1;

    EXPECT_EQ(ACD::ErrorI2C, driver->newSignature(challenge.data(), 32, &response, &length));
    EXPECT_EQ(0, length);
    EXPECT_EQ(nullptr, response);
}
