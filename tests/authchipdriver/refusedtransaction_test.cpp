// What every operation does when the bus is not available. The library's own i2cStartTransaction() waits forever
// instead, so this program puts its own in its place: the shared library calls the I2C layer through its exported
// functions, and the program's definition comes first.

#include <authchipdriver/i2c.h>

#include <cstdlib>
#include <string>
#include <type_traits>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/authchipfactory.h>

#include "tests/support/drivertest.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

namespace {

int g_stops = 0;

} // namespace

namespace VorelKestrel { namespace ACD {

bool i2cStartTransaction()
{
    return false;
}

void i2cStopTransaction()
{
    ++g_stops;
}

}} // namespace VorelKestrel::ACD

namespace {

template<typename Driver>
class RefusedTransactionTest : public OpenBusTest
{
protected:
    RefusedTransactionTest()
    {
        m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
        m_journal.clear();
        g_stops = 0;
    }

    /// No bus traffic, no exit line and no stop; the lines are the entry line and the error.
    void expectNothingBut(const std::string& entryDetails)
    {
        EXPECT_THAT(m_journal.all(), ElementsAre("TRACE Enter label: " + entryDetails, "ERROR I2C transaction failed"));
        EXPECT_EQ(0, g_stops);
    }

    Driver m_driver;
};

using Drivers = ::testing::Types<AuthChipDriver20B, AuthChipDriver30>;
TYPED_TEST_SUITE(RefusedTransactionTest, Drivers);

TYPED_TEST(RefusedTransactionTest, DeviceIdReturnsErrorI2CWithoutAnExitLineAndWithoutAStop)
{
    U32 id = 77;

    EXPECT_EQ(ErrorI2C, this->m_driver.getDeviceID(id));
    EXPECT_EQ(77U, id);
    this->expectNothingBut("Reading device ID");
}

TYPED_TEST(RefusedTransactionTest, CertificateLengthReturnsErrorI2CAndLeavesTheLength)
{
    int length = 77;

    EXPECT_EQ(ErrorI2C, this->m_driver.getAccessoryCertificateDataLength(length));
    EXPECT_EQ(77, length);
    this->expectNothingBut("");
}

TYPED_TEST(RefusedTransactionTest, CertificateReturnsErrorI2CAndLeavesTheLength)
{
    int length = 77;
    Bytes buffer(77);

    EXPECT_EQ(ErrorI2C, this->m_driver.getAccessoryCertificateData(buffer.data(), length));
    EXPECT_EQ(77, length);
    this->expectNothingBut("requested length=77");
}

TYPED_TEST(RefusedTransactionTest, ASignatureReturnsErrorI2CLeavesTheOutputsAndDoesNotCallI2cStopTransaction)
{
    const Bytes challenge = counting(32);
    U8 byte = 0;
    U8* response = &byte;
    int length = 77;

    EXPECT_EQ(ErrorI2C, this->m_driver.newSignature(challenge.data(), 32, &response, &length));
    EXPECT_EQ(&byte, response);
    EXPECT_EQ(77, length);
    this->expectNothingBut("challengeLength=32");
}

TYPED_TEST(RefusedTransactionTest, ASignatureLooksAtNoneOfItsArguments)
{
    EXPECT_EQ(ErrorI2C, this->m_driver.newSignature(nullptr, 7, nullptr, nullptr));
    this->expectNothingBut("challengeLength=7");
}

TYPED_TEST(RefusedTransactionTest, ARawWriteIsStillMadeAndNoStopFollows)
{
    const U8 byte = 1;

    EXPECT_EQ(1, this->m_driver.rawWrite(0x10, &byte, 1));
    EXPECT_THAT(this->m_journal.all(),
                ElementsAre("TRACE Enter label: reg=0x10, numBytes=1", "write 10 01", "TRACE Leave label: result=1"));
    EXPECT_EQ(0, g_stops);
}

TYPED_TEST(RefusedTransactionTest, ARawReadIsStillMadeAndNoStopFollows)
{
    this->m_bus.holds(0x10, {1});
    U8 byte = 0;

    EXPECT_EQ(1, this->m_driver.rawRead(0x10, &byte, 1));
    EXPECT_THAT(this->m_journal.all(), ElementsAre("TRACE Enter label: reg=0x10, numBytes=1", "write 10", "read 1",
                                                   "TRACE Leave label: result=1"));
    EXPECT_EQ(0, g_stops);
}

TYPED_TEST(RefusedTransactionTest, AVersionQueryReturnsErrorI2C)
{
    U8 version = 77;

    EXPECT_EQ(ErrorI2C, this->m_driver.getDeviceVersion(version));
    EXPECT_EQ(77, version);
    EXPECT_THAT(this->m_journal.all(), IsEmpty());
    EXPECT_EQ(0, g_stops);
}

class RefusedDetectionTest : public BusTest
{};

TEST_F(RefusedDetectionTest, YieldsNullWithoutTouchingTheChip)
{
    EXPECT_EQ(nullptr, AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress));
    EXPECT_EQ("open /dev/i2c-7; select 2a", m_bus.conversation());
    EXPECT_EQ(0, g_stops);
}

} // namespace
