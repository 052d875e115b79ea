#include "simulator/node/inprocessfront.h"

#include <cerrno>
#include <cstdint>

#include <linux/i2c-dev.h>

#include <gtest/gtest.h>

#include "simulator/simulation.h"
#include "tests/simulator/chip/signaturecheck.h"
#include "tests/simulator/chip/testcredentials.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using namespace std::chrono_literals;

namespace {

class InProcessFrontTest : public testing::Test
{
protected:
    static constexpr const char* kPath = "/dev/i2c-7";

    int openAndSelect()
    {
        const int descriptor = m_front.open();
        EXPECT_EQ(0, select(descriptor, 0x2a));
        return descriptor;
    }
    int select(int descriptor, std::uintptr_t address)
    {
        return m_front.ioctl(descriptor, I2C_SLAVE,
                             reinterpret_cast<void*>(address)); // NOLINT(performance-no-int-to-ptr)
    }
    bool write(int descriptor, const Bytes& message)
    {
        return m_front.write(descriptor, message.data(), message.size()) == static_cast<ssize_t>(message.size());
    }
    Bytes read(int descriptor, VorelKestrel::AL::U8 reg, std::size_t length)
    {
        Bytes value(length);
        EXPECT_TRUE(write(descriptor, {reg}));
        EXPECT_EQ(static_cast<ssize_t>(length), m_front.read(descriptor, value.data(), length));
        return value;
    }

    ManualClock m_clock;
    Simulation m_simulation{SimulationSettings{}, testCredentials(kGeneration30), m_clock};
    InProcessFront m_front{m_simulation.node(), kPath};
};

TEST_F(InProcessFrontTest, OwnsItsPathAndItsDescriptorsAndNoOthers)
{
    EXPECT_TRUE(m_front.owns(kPath));
    EXPECT_FALSE(m_front.owns("/dev/i2c-8"));
    EXPECT_TRUE(m_front.owns(m_front.open()));
    for (const int descriptor : {-1, 0, 2, 1024, 1048576})
        EXPECT_FALSE(m_front.owns(descriptor));
}

TEST_F(InProcessFrontTest, CarriesAWholeExchangeWithoutASleep)
{
    const int descriptor = openAndSelect();
    Bytes message(33, 0x77);
    message[0] = 0x21;

    EXPECT_TRUE(write(descriptor, message));
    EXPECT_TRUE(write(descriptor, {0x10, 1}));
    EXPECT_FALSE(write(descriptor, {0x10}));
    EXPECT_EQ(ENXIO, errno);
    m_clock.advance(30ms);
    EXPECT_EQ(Bytes{0x10}, read(descriptor, 0x10, 1));
    EXPECT_TRUE(
        isAuthentic(m_simulation.chip().credentials().certificate(), Bytes(32, 0x77), read(descriptor, 0x12, 64)));
}

TEST_F(InProcessFrontTest, ReachesTheFaults)
{
    const int descriptor = openAndSelect();
    Faults faults;
    faults.refusedMessages = 1;
    m_simulation.faults().inject(faults);

    EXPECT_FALSE(write(descriptor, {0x00}));
    EXPECT_TRUE(write(descriptor, {0x00}));
}

TEST_F(InProcessFrontTest, ReportsErrorsThroughErrno)
{
    const int descriptor = m_front.open();

    EXPECT_EQ(-1, select(descriptor, 0x80));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, m_front.read(descriptor, nullptr, SIZE_MAX));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(InProcessFrontTest, AnswersAClosedDescriptorWithEbadf)
{
    const int descriptor = openAndSelect();
    EXPECT_EQ(1U, m_front.openCount());
    EXPECT_EQ(0, m_front.close(descriptor));
    EXPECT_EQ(0U, m_front.openCount());

    EXPECT_EQ(-1, m_front.close(descriptor));
    EXPECT_EQ(EBADF, errno);
    errno = 0;
    EXPECT_FALSE(write(descriptor, {0}));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, m_front.read(descriptor, nullptr, 0));
    EXPECT_EQ(-1, select(descriptor, 0x2a));
}

TEST_F(InProcessFrontTest, ShowsTheSameChipThroughEveryDescriptor)
{
    const int one = openAndSelect();
    const int other = openAndSelect();
    write(one, {0x21, 1, 2, 3});

    EXPECT_EQ((Bytes{0, 3}), read(other, 0x20, 2));
}

} // namespace
