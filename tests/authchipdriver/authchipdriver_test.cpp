#include <authchipdriver/authchipdriver.h>

#include <iostream>
#include <stdexcept>

#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"
#include "tests/support/soiledstack.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

namespace {

std::string driverError(const std::string& message)
{
    return consoleLine("DbgError", "authchipdriver", message);
}

/// The operations that the base class implements, on a driver of either kind.
class AuthChipDriverTest : public OpenBusTest
{
protected:
    AuthChipDriverTest() { m_bus.forget(); }

    AuthChipDriver30 m_chip;
    AuthChipDriver& m_driver = m_chip;
};

// --- version queries -------------------------------------------------------------------------------------------------

struct VersionQuery
{
    const char* name;
    Error (AuthChipDriver::*query)(U8&);
    U8 reg;
    const char* transfers;
};

std::ostream& operator<<(std::ostream& stream, const VersionQuery& versionQuery)
{
    return stream << versionQuery.name;
}

class VersionQueryTest : public AuthChipDriverTest, public ::testing::WithParamInterface<VersionQuery>
{
protected:
    Error query() { return (m_driver.*GetParam().query)(m_version); }

    U8 m_version = 0xee;
};

TEST_P(VersionQueryTest, ReadsItsRegisterInOneTransaction)
{
    m_bus.holds(GetParam().reg, {7});

    EXPECT_EQ(Success, query());
    EXPECT_EQ(7, m_version);
    EXPECT_EQ(std::string("lock; ") + GetParam().transfers + "; unlock", m_bus.conversation());
}

TEST_P(VersionQueryTest, ThatFailsReturnsErrorI2CReleasesTheTransactionAndLeavesTheOutput)
{
    m_bus.failsReads(FakeBus::kForever);

    EXPECT_EQ(ErrorI2C, query());
    EXPECT_EQ(0xee, m_version);
    EXPECT_EQ("unlock", m_journal.all().back());
    EXPECT_FALSE(m_bus.isLocked());
    const std::string reg(1, static_cast<char>('0' + GetParam().reg));
    EXPECT_THAT(lines(),
                ElementsAre(driverError("unable to read byte from register 0x" + reg + " - i2cRead returns -1")));
}

/// A driver that overrides readByte.
class UnreadableDriver : public AuthChipDriver30
{
public:
    Error readByte(int reg, U8& value) override
    {
        if (m_throws)
            throw std::runtime_error("readByte");
        value = static_cast<U8>(100 + reg);
        return ErrorInvalid;
    }

    bool m_throws = false;
};

TEST_P(VersionQueryTest, CallsReadByteThroughItsVirtualSlotAndReturnsItsResult)
{
    UnreadableDriver driver;
    m_bus.forget();

    EXPECT_EQ(ErrorInvalid, (driver.*GetParam().query)(m_version));
    EXPECT_EQ(100 + GetParam().reg, m_version);
    EXPECT_EQ("lock; unlock", m_bus.conversation());
}

TEST_P(VersionQueryTest, WhoseReadThrowsReleasesTheTransaction)
{
    UnreadableDriver driver;
    driver.m_throws = true;
    m_bus.forget();

    EXPECT_THROW((driver.*GetParam().query)(m_version), std::runtime_error);
    EXPECT_EQ("lock; unlock", m_bus.conversation());
}

INSTANTIATE_TEST_SUITE_P(
    Queries, VersionQueryTest,
    ::testing::Values(VersionQuery{"DeviceVersion", &AuthChipDriver::getDeviceVersion, 0, "write 00; read 1"},
                      VersionQuery{"FirmwareVersion", &AuthChipDriver::getFirmwareVersion, 1, "write 01; read 1"},
                      VersionQuery{"ProtocolMajorVersion", &AuthChipDriver::getAuthenticationProtocolMajorVersion, 2,
                                   "write 02; read 1"},
                      VersionQuery{"ProtocolMinorVersion", &AuthChipDriver::getAuthenticationProtocolMinorVersion, 3,
                                   "write 03; read 1"}),
    [](const auto& query) { return std::string(query.param.name); });

// --- read helpers ----------------------------------------------------------------------------------------------------

TEST_F(AuthChipDriverTest, ReadByteYieldsTheByte)
{
    m_bus.holds(0x10, {0x9f});
    U8 value = 0;

    EXPECT_EQ(Success, m_driver.readByte(0x10, value));
    EXPECT_EQ(0x9f, value);
    EXPECT_EQ("write 10; read 1", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, ReadWordOfTheBytes04D2Yields1234)
{
    m_bus.holds(0x30, {0x04, 0xd2});
    U16 value = 0;

    EXPECT_EQ(Success, m_driver.readWord(0x30, value));
    EXPECT_EQ(1234, value);
    EXPECT_EQ("write 30; read 2", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, ReadDWordOf00000200Yields512)
{
    m_bus.holds(0x04, {0x00, 0x00, 0x02, 0x00});
    U32 value = 0;

    EXPECT_EQ(Success, m_driver.readDWord(0x04, value));
    EXPECT_EQ(512U, value);
    EXPECT_EQ("write 04; read 4", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, ReadDWordTakesTheFirstByteAsTheMostSignificant)
{
    m_bus.holds(0x04, {0xfe, 0xdc, 0xba, 0x98});
    U32 value = 0;
    m_driver.readDWord(0x04, value);

    EXPECT_EQ(0xfedcba98U, value);
}

TEST_F(AuthChipDriverTest, ReadWordTakesTheLargestValue)
{
    m_bus.holds(0x11, {0xff, 0xff});
    U16 value = 0;
    m_driver.readWord(0x11, value);

    EXPECT_EQ(65535, value);
}

TEST_F(AuthChipDriverTest, ReadByteAfterAFailedI2cReadReturnsErrorI2CWritesOneLineAndLeavesTheOutput)
{
    m_bus.failsReads(FakeBus::kForever);
    U8 value = 0xee;

    EXPECT_EQ(ErrorI2C, m_driver.readByte(0x10, value));
    EXPECT_EQ(0xee, value);
    EXPECT_THAT(lines(), ElementsAre(driverError("unable to read byte from register 0x10 - i2cRead returns -1")));
}

TEST_F(AuthChipDriverTest, ReadWordThatComesShortReturnsErrorI2CWritesOneLineAndLeavesTheOutput)
{
    m_bus.holds(0x30, {0x04, 0xd2}).deliversOnly(0x30, 1);
    U16 value = 0xeeee;

    EXPECT_EQ(ErrorI2C, m_driver.readWord(0x30, value));
    EXPECT_EQ(0xeeee, value);
    EXPECT_THAT(lines(), ElementsAre(driverError("unable to read word from register 0x30 - i2cRead returns 1")));
}

TEST_F(AuthChipDriverTest, ReadDWordThatComesShortReturnsErrorI2CWritesOneLineAndLeavesTheOutput)
{
    m_bus.holds(0x04, counting(4)).deliversOnly(0x04, 3);
    U32 value = 0xeeeeeeee;

    EXPECT_EQ(ErrorI2C, m_driver.readDWord(0x04, value));
    EXPECT_EQ(0xeeeeeeee, value);
    EXPECT_THAT(lines(), ElementsAre(driverError("unable to read dword from register 0x4 - i2cRead returns 3")));
}

TEST_F(AuthChipDriverTest, AReadThatDeliversMoreThanAskedReturnsErrorI2CWritesOneLineAndLeavesTheOutput)
{
    m_bus.answersReads({2, 3, 5});
    U8 byte = 0xee;
    U16 word = 0xeeee;
    U32 dword = 0xeeeeeeee;

    EXPECT_EQ(ErrorI2C, m_driver.readByte(0x10, byte));
    EXPECT_EQ(ErrorI2C, m_driver.readWord(0x30, word));
    EXPECT_EQ(ErrorI2C, m_driver.readDWord(0x04, dword));
    EXPECT_EQ(0xee, byte);
    EXPECT_EQ(0xeeee, word);
    EXPECT_EQ(0xeeeeeeee, dword);
    EXPECT_THAT(lines(), ElementsAre(driverError("unable to read byte from register 0x10 - i2cRead returns 2"),
                                     driverError("unable to read word from register 0x30 - i2cRead returns 3"),
                                     driverError("unable to read dword from register 0x4 - i2cRead returns 5")));
}

TEST_F(AuthChipDriverTest, TheLineOfAFailedReadShowsTheRegisterInHexadecimalAndTheResultInDecimal)
{
    m_bus.answersReads({10, 11, 12});
    U8 byte = 0;
    U16 word = 0;
    U32 dword = 0;
    m_driver.readByte(0x1a, byte);
    m_driver.readWord(0x2b, word);
    m_driver.readDWord(0x3c, dword);

    EXPECT_THAT(lines(), ElementsAre(driverError("unable to read byte from register 0x1a - i2cRead returns 10"),
                                     driverError("unable to read word from register 0x2b - i2cRead returns 11"),
                                     driverError("unable to read dword from register 0x3c - i2cRead returns 12")));
}

/// A bus that records the content of the buffer for a byte, and reports that one byte was read.
class LookingBus : public FakeBus
{
public:
    using FakeBus::FakeBus;

    ssize_t read(int /*descriptor*/, void* data, std::size_t count) override
    {
        m_found = *static_cast<const U8*>(data);
        return static_cast<ssize_t>(count);
    }

    U8 m_found = 0xee;
};

TEST(ReadByteTest, ClearsItsBufferFirst)
{
    Journal journal;
    LookingBus bus(journal);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    AuthChipDriver30 driver;
    U8 value = 0xee;
    driver.readByte(0x10, value); // the first call is looked up by the loader, which cleans the stack in places
    value = 0xee;
    soilStack();

    EXPECT_EQ(Success, driver.readByte(0x10, value));
    EXPECT_EQ(0, bus.m_found);
    EXPECT_EQ(0, value);
}

TEST_F(AuthChipDriverTest, AReadWhoseRegisterIsRefusedReturnsErrorI2CAndTheLineShows0)
{
    m_bus.refusesRegister(0x30);
    U16 value = 0xeeee;

    EXPECT_EQ(ErrorI2C, m_driver.readWord(0x30, value));
    EXPECT_THAT(lines(), ElementsAre(driverError("unable to read word from register 0x30 - i2cRead returns 0")));
}

// --- write helpers ---------------------------------------------------------------------------------------------------

TEST_F(AuthChipDriverTest, WriteByteSendsTheValue)
{
    EXPECT_EQ(Success, m_driver.writeByte(0x10, 255));
    EXPECT_EQ("write 10 ff", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, WriteWordSends0AndTheLowEightBits)
{
    EXPECT_EQ(Success, m_driver.writeWord(0x20, 20));
    EXPECT_EQ("write 20 00 14", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, WriteWordNeverSendsBits8To15AndReturnsSuccess)
{
    EXPECT_EQ(Success, m_driver.writeWord(0x20, 0x1234));
    EXPECT_EQ(Success, m_driver.writeWord(0x20, 0x0180));
    EXPECT_EQ("write 20 00 34; write 20 00 80", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, WriteWordOfTheLargestValueSends0AndFF)
{
    EXPECT_EQ(Success, m_driver.writeWord(0x20, 0xffff));
    EXPECT_EQ("write 20 00 ff", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, WhatIsSentDoesNotDependOnTheRegister)
{
    EXPECT_EQ(Success, m_driver.writeByte(0x123404, 0x78));
    EXPECT_EQ(Success, m_driver.writeWord(0x123404, 0x78));
    EXPECT_EQ(Success, m_driver.writeDWord(0x123404, 0x78));
    EXPECT_EQ("write 04 78; write 04 00 78; write 04 00 00 00 78", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, WriteDWordSendsThree0AndTheLowEightBits)
{
    EXPECT_EQ(Success, m_driver.writeDWord(0x20, 0x01020304));
    EXPECT_EQ("write 20 00 00 00 04", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, WriteDWordDoesNotCheckTheRange)
{
    EXPECT_EQ(Success, m_driver.writeDWord(0x20, -1));
    EXPECT_EQ("write 20 00 00 00 ff", m_bus.conversation());
}

TEST_F(AuthChipDriverTest, AWriteThatIsRefusedReturnsErrorI2CAndWritesOneLine)
{
    m_bus.refusesWrites(FakeBus::kForever);

    EXPECT_EQ(ErrorI2C, m_driver.writeByte(0x10, 1));
    EXPECT_EQ(ErrorI2C, m_driver.writeWord(0x20, 1));
    EXPECT_EQ(ErrorI2C, m_driver.writeDWord(0xab, 1));
    EXPECT_THAT(lines(), ElementsAre(driverError("unable to write byte to register 0x10 - i2cWrite returns -2"),
                                     driverError("unable to write word to register 0x20 - i2cWrite returns -2"),
                                     driverError("unable to write dword to register 0xab - i2cWrite returns -2")));
}

TEST_F(AuthChipDriverTest, AWriteThatIsTakenInPartReturnsErrorI2C)
{
    m_bus.takesOnly(0x20, 2);

    EXPECT_EQ(ErrorI2C, m_driver.writeWord(0x20, 1));
    EXPECT_THAT(lines(), ElementsAre(driverError("unable to write word to register 0x20 - i2cWrite returns 1")));
}

TEST_F(AuthChipDriverTest, AWriteOfWhichTheBusTakesMoreThanThereIsReturnsErrorI2CAndWritesOneLine)
{
    m_bus.answersWrites(std::vector<int>(100, 3));
    EXPECT_EQ(ErrorI2C, m_driver.writeByte(0x10, 1));
    m_bus.answersWrites(std::vector<int>(100, 4));
    EXPECT_EQ(ErrorI2C, m_driver.writeWord(0x20, 1));
    m_bus.answersWrites(std::vector<int>(100, 6));
    EXPECT_EQ(ErrorI2C, m_driver.writeDWord(0x21, 1));

    EXPECT_THAT(lines(), ElementsAre(driverError("unable to write byte to register 0x10 - i2cWrite returns 2"),
                                     driverError("unable to write word to register 0x20 - i2cWrite returns 3"),
                                     driverError("unable to write dword to register 0x21 - i2cWrite returns 5")));
}

using AuthChipDriverDeathTest = AuthChipDriverTest;

TEST_F(AuthChipDriverDeathTest, WriteByteOf256StopsTheProcess)
{
    EXPECT_DEATH(m_driver.writeByte(0x10, 256), "Assertion `\\(value&0xffffff00\\) == 0' failed");
    EXPECT_DEATH(m_driver.writeByte(0x10, -1), "Assertion `\\(value&0xffffff00\\) == 0' failed");
}

TEST_F(AuthChipDriverDeathTest, WriteWordOf65536StopsTheProcess)
{
    EXPECT_DEATH(m_driver.writeWord(0x20, 65536), "Assertion `\\(value&0xffff0000\\) == 0' failed");
    EXPECT_DEATH(m_driver.writeWord(0x20, -1), "Assertion `\\(value&0xffff0000\\) == 0' failed");
}

// --- registers and lines ---------------------------------------------------------------------------------------------

TEST_F(AuthChipDriverTest, ARegisterAbove255UsesItsLowEightBitsOnTheBusAndIsPrintedWhole)
{
    m_bus.refusesWrites(FakeBus::kForever);
    U8 value = 0;
    m_driver.readByte(0x1ab, value);
    m_driver.writeByte(0xFF10, 1);

    EXPECT_EQ(repeated(100, "write ab; sleep 10000") + "; " + repeated(100, "write 10 01; sleep 10000"),
              m_bus.conversation());
    EXPECT_THAT(lines(), ElementsAre(driverError("unable to read byte from register 0x1ab - i2cRead returns 0"),
                                     driverError("unable to write byte to register 0xff10 - i2cWrite returns -2")));
}

TEST_F(AuthChipDriverTest, TheHelpersTakeNoTransaction)
{
    m_bus.holds(0x00, counting(4));
    U8 byte = 0;
    U16 word = 0;
    U32 dword = 0;
    m_driver.readByte(0, byte);
    m_driver.readWord(0, word);
    m_driver.readDWord(0, dword);
    m_driver.writeByte(0, 0);
    m_driver.writeWord(0, 0);
    m_driver.writeDWord(0, 0);

    EXPECT_EQ("write 00; read 1; write 00; read 2; write 00; read 4; write 00 00; write 00 00 00; write 00 00 00 00 00",
              m_bus.conversation());
}

/// Every helper's error line, each by itself.
std::vector<std::string> errorLinesAtLevel(int level, FakeBus& bus, AuthChipDriver& driver, ConsoleLog& console)
{
    bus.refusesWrites(FakeBus::kForever);
    ConsoleLog::setLevel(level);
    U8 byte = 0;
    U16 word = 0;
    U32 dword = 0;
    driver.readByte(0, byte);
    driver.readWord(0, word);
    driver.readDWord(0, dword);
    driver.writeByte(0, 0);
    driver.writeWord(0, 0);
    driver.writeDWord(0, 0);
    return console.lines();
}

TEST_F(AuthChipDriverTest, TheErrorLinesAreWrittenAtLevel2)
{
    EXPECT_EQ(6U, errorLinesAtLevel(2, m_bus, m_driver, m_console).size());
}

TEST_F(AuthChipDriverTest, TheErrorLinesAreNotWrittenAtLevel1)
{
    EXPECT_THAT(errorLinesAtLevel(1, m_bus, m_driver, m_console), IsEmpty());
}

TEST_F(AuthChipDriverTest, AnErrorLineLeavesTheStreamInDecimal)
{
    m_bus.refusesWrites(FakeBus::kForever);
    U8 byte = 0;
    m_driver.readByte(0xff, byte);
    std::cout << 255 << std::endl;

    EXPECT_EQ("255", lines().back());
}

} // namespace
