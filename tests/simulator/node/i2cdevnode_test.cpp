#include "simulator/node/i2cdevnode.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <utility>
#include <vector>

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <gtest/gtest.h>

#include "tests/simulator/bus/recordingbus.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using VorelKestrel::AL::U8;

namespace {

void* argument(unsigned long number)
{
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(number)); // NOLINT(performance-no-int-to-ptr)
}

class I2cDevNodeTest : public testing::Test
{
protected:
    int select(unsigned long address) { return m_file->ioctl(I2C_SLAVE, argument(address)); }

    int transfer(std::vector<i2c_msg> messages)
    {
        i2c_rdwr_ioctl_data data{messages.data(), static_cast<U8>(messages.size())};
        return m_file->ioctl(I2C_RDWR, &data);
    }

    int smbus(U8 direction, U8 command, unsigned size, i2c_smbus_data* data)
    {
        i2c_smbus_ioctl_data request{direction, command, size, data};
        return m_file->ioctl(I2C_SMBUS, &request);
    }

    RecordingBus m_bus;
    I2cDevNode m_node{m_bus, {{0x50, 0x51}}};
    std::unique_ptr<I2cDevFile> m_file = m_node.open();
    Bytes m_data = Bytes(9000);
};

TEST_F(I2cDevNodeTest, SelectsAnAddressOfSevenBits)
{
    EXPECT_EQ(0, select(0x00));
    EXPECT_EQ(0, select(0x7f));
}

TEST_F(I2cDevNodeTest, RefusesAnAddressAbove0x7fWithEinval)
{
    for (const unsigned long address : {0x80UL, 0x100UL, ULONG_MAX})
        EXPECT_EQ(-EINVAL, select(address));
}

TEST_F(I2cDevNodeTest, RefusesABoundAddressWithEbusyUnlessForced)
{
    EXPECT_EQ(-EBUSY, select(0x50));
    EXPECT_EQ(-EBUSY, select(0x51));
    EXPECT_EQ(0, m_file->ioctl(I2C_SLAVE_FORCE, argument(0x50)));
    EXPECT_EQ(-EINVAL, m_file->ioctl(I2C_SLAVE_FORCE, argument(0x80)));
}

TEST_F(I2cDevNodeTest, TakesAddressesOfTenBitsOnlyAfterTenBitMode)
{
    EXPECT_EQ(0, m_file->ioctl(I2C_TENBIT, argument(1)));
    EXPECT_EQ(0, select(0x3ff));
    EXPECT_EQ(-EINVAL, select(0x400));
    EXPECT_EQ(0, m_file->ioctl(I2C_TENBIT, argument(0)));
    EXPECT_EQ(-EINVAL, select(0x80));
}

TEST_F(I2cDevNodeTest, KeepsTheOldAddressAfterARefusal)
{
    select(0x2a);
    select(0x80);
    m_file->write(m_data.data(), 1);

    EXPECT_EQ("write 2a 00", m_bus.conversation());
}

TEST_F(I2cDevNodeTest, GivesEveryFileAnAddressOfItsOwn)
{
    const auto other = m_node.open();
    select(0x2a);
    other->ioctl(I2C_SLAVE, argument(0x2b));
    m_file->write(m_data.data(), 1);
    other->write(m_data.data(), 1);

    EXPECT_EQ("write 2a 00; write 2b 00", m_bus.conversation());
}

TEST_F(I2cDevNodeTest, MakesOneMessageOfEveryReadAndWrite)
{
    select(0x2a);
    m_bus.m_content = {7, 8};
    m_data = {0x21, 1, 2};
    EXPECT_EQ(3, m_file->write(m_data.data(), 3));
    EXPECT_EQ(2, m_file->read(m_data.data(), 2));

    EXPECT_EQ("write 2a 21 01 02; read 2a 2", m_bus.conversation());
    EXPECT_EQ((Bytes{7, 8, 2}), m_data);
}

TEST_F(I2cDevNodeTest, CutsAMessageTo8192Bytes)
{
    EXPECT_EQ(8192, m_file->read(m_data.data(), 8193));
    EXPECT_EQ(8192, m_file->write(m_data.data(), 9000));
}

TEST_F(I2cDevNodeTest, RefusesCountsAboveSsizeMaxWithEinvalAndWithoutAMessage)
{
    EXPECT_EQ(-EINVAL, m_file->read(m_data.data(), static_cast<std::size_t>(SSIZE_MAX) + 1));
    EXPECT_EQ(-EINVAL, m_file->write(m_data.data(), SIZE_MAX));
    EXPECT_EQ("", m_bus.conversation());
}

TEST_F(I2cDevNodeTest, TellsOutcomesByTheKernelsErrors)
{
    const std::pair<Outcome, int> cases[] = {
        {Outcome::Refused, -ENXIO}, {Outcome::Failed, -EIO}, {Outcome::TimedOut, -ETIMEDOUT}};
    for (const auto& [outcome, error] : cases) {
        m_bus.m_outcome = outcome;
        EXPECT_EQ(error, m_file->read(m_data.data(), 1));
        EXPECT_EQ(error, m_file->write(m_data.data(), 1));
        EXPECT_EQ(error, transfer({{0x2a, 0, 1, m_data.data()}}));
    }
}

TEST_F(I2cDevNodeTest, TellsTheBusATimeoutInTensOfMilliseconds)
{
    EXPECT_EQ(0, m_file->ioctl(I2C_TIMEOUT, argument(10)));
    EXPECT_EQ("timeout 100", m_bus.conversation());
    EXPECT_EQ(-EINVAL, m_file->ioctl(I2C_TIMEOUT, argument(1UL << 31U)));
    EXPECT_EQ("", m_bus.conversation());
}

TEST_F(I2cDevNodeTest, AcceptsRetriesAndPec)
{
    EXPECT_EQ(0, m_file->ioctl(I2C_RETRIES, argument(3)));
    EXPECT_EQ(0, m_file->ioctl(I2C_PEC, argument(1)));
    EXPECT_EQ(-EINVAL, m_file->ioctl(I2C_RETRIES, argument(1UL << 31U)));
}

TEST_F(I2cDevNodeTest, OffersPlainAndSimpleSmbusTransfers)
{
    unsigned long functions = 0;

    EXPECT_EQ(0, m_file->ioctl(I2C_FUNCS, &functions));
    EXPECT_NE(0U, functions & I2C_FUNC_I2C);
    EXPECT_NE(0U, functions & I2C_FUNC_SMBUS_QUICK);
    EXPECT_EQ(0U, functions & I2C_FUNC_10BIT_ADDR);
    EXPECT_EQ(-EFAULT, m_file->ioctl(I2C_FUNCS, nullptr));
}

TEST_F(I2cDevNodeTest, DoesNotKnowOtherRequests)
{
    EXPECT_EQ(-ENOTTY, m_file->ioctl(0x5401, m_data.data()));
    EXPECT_EQ(-ENOTTY, m_file->ioctl(0, nullptr));
}

TEST_F(I2cDevNodeTest, TransfersCombinedMessagesAtTheAddressesThatTheyName)
{
    m_bus.m_content = {9};
    m_data = {0x10, 0};
    EXPECT_EQ(2, transfer({{0x2a, 0, 1, m_data.data()}, {0x2b, I2C_M_RD, 1, m_data.data() + 1}}));

    EXPECT_EQ("write 2a 10; read 2b 1", m_bus.conversation());
    EXPECT_EQ((Bytes{0x10, 9}), m_data);
}

TEST_F(I2cDevNodeTest, StopsACombinedTransferAtTheFirstMessageThatFails)
{
    m_bus.m_outcome = Outcome::Refused;
    EXPECT_EQ(-ENXIO, transfer({{0x2a, 0, 1, m_data.data()}, {0x2a, I2C_M_RD, 1, m_data.data()}}));

    EXPECT_EQ("write 2a 00", m_bus.conversation());
}

TEST_F(I2cDevNodeTest, RefusesCombinedTransfersThatTheKernelRefuses)
{
    i2c_rdwr_ioctl_data nowhere{nullptr, 1};
    EXPECT_EQ(-EINVAL, m_file->ioctl(I2C_RDWR, &nowhere));
    EXPECT_EQ(-EINVAL, transfer({}));
    EXPECT_EQ(-EINVAL, transfer(std::vector<i2c_msg>(43, i2c_msg{0x2a, 0, 1, m_data.data()})));
    EXPECT_EQ(-EINVAL, transfer({{0x2a, 0, 8193, m_data.data()}}));
    EXPECT_EQ(-EFAULT, m_file->ioctl(I2C_RDWR, nullptr));
    EXPECT_EQ("", m_bus.conversation());
}

TEST_F(I2cDevNodeTest, MakesSmbusTransfersOfPlainMessages)
{
    select(0x2a);
    i2c_smbus_data data{};
    data.block[0] = 0x05;
    data.block[1] = 0x06;

    EXPECT_EQ(0, smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK, nullptr));
    EXPECT_EQ("write 2a", m_bus.conversation());
    EXPECT_EQ(0, smbus(I2C_SMBUS_WRITE, 0x10, I2C_SMBUS_BYTE, nullptr));
    EXPECT_EQ("write 2a 10", m_bus.conversation());
    EXPECT_EQ(0, smbus(I2C_SMBUS_WRITE, 0x10, I2C_SMBUS_BYTE_DATA, &data));
    EXPECT_EQ("write 2a 10 05", m_bus.conversation());
    EXPECT_EQ(0, smbus(I2C_SMBUS_WRITE, 0x10, I2C_SMBUS_WORD_DATA, &data));
    EXPECT_EQ("write 2a 10 05 06", m_bus.conversation());
    EXPECT_EQ(0, smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, &data));
    EXPECT_EQ("read 2a 1", m_bus.conversation());
    EXPECT_EQ(0, smbus(I2C_SMBUS_READ, 0x10, I2C_SMBUS_WORD_DATA, &data));
    EXPECT_EQ("write 2a 10; read 2a 2", m_bus.conversation());
}

TEST_F(I2cDevNodeTest, MovesSmbusBlocksWithTheirLengthInFront)
{
    select(0x2a);
    i2c_smbus_data data{};
    data.block[0] = 3;
    data.block[1] = 0xaa;
    EXPECT_EQ(0, smbus(I2C_SMBUS_WRITE, 0x21, I2C_SMBUS_I2C_BLOCK_DATA, &data));
    EXPECT_EQ("write 2a 21 aa 00 00", m_bus.conversation());

    m_bus.m_content = {1, 2, 3};
    EXPECT_EQ(0, smbus(I2C_SMBUS_READ, 0x21, I2C_SMBUS_I2C_BLOCK_DATA, &data));
    EXPECT_EQ(1, data.block[1]);
    EXPECT_EQ(3, data.block[3]);

    data.block[0] = 0;
    EXPECT_EQ(-EINVAL, smbus(I2C_SMBUS_READ, 0x21, I2C_SMBUS_I2C_BLOCK_DATA, &data));
    data.block[0] = I2C_SMBUS_BLOCK_MAX + 1;
    EXPECT_EQ(-EINVAL, smbus(I2C_SMBUS_WRITE, 0x21, I2C_SMBUS_I2C_BLOCK_DATA, &data));
}

TEST_F(I2cDevNodeTest, RefusesSmbusTransfersThatItCannotMake)
{
    i2c_smbus_data data{};

    EXPECT_EQ(-EOPNOTSUPP, smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_BLOCK_DATA, &data));
    EXPECT_EQ(-EINVAL, smbus(2, 0, I2C_SMBUS_BYTE, &data));
    EXPECT_EQ(-EINVAL, smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE_DATA, nullptr));
    EXPECT_EQ("", m_bus.conversation());
}

} // namespace
