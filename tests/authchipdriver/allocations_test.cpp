#include "tests/support/allocations.h"

#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"
#include "tests/support/operations.h"
#include "tests/support/uncountedbus.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U8;

namespace {

/// With logging off: the console at its default level and on a success, the drivers' log switched off.
class AllocationTest : public ::testing::TestWithParam<Operation>
{
protected:
    AllocationTest()
    {
        log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    }

    int allocationsOf(AuthChipDriver& driver)
    {
        const allocations::Counter counter;
        EXPECT_EQ(0, GetParam().call(driver));
        return counter.count();
    }

    Journal m_journal;
    UncountedBus m_bus{m_journal};
};

using Allocation20BTest = AllocationTest;
using Allocation30Test = AllocationTest;

TEST_P(Allocation20BTest, OnlyTheBufferOfI2cWriteAndTheAnswerAreAllocated)
{
    arrangeHealthyChip(m_bus, false);
    AuthChipDriver20B driver;

    EXPECT_EQ(GetParam().allocations, allocationsOf(driver));
}

TEST_P(Allocation30Test, OnlyTheBufferOfI2cWriteAndTheAnswerAreAllocated)
{
    arrangeHealthyChip(m_bus, true);
    AuthChipDriver30 driver;

    EXPECT_EQ(GetParam().allocations, allocationsOf(driver));
}

const auto kName = [](const auto& operation) { return std::string(operation.param.name); };
INSTANTIATE_TEST_SUITE_P(Operations, Allocation20BTest, ::testing::ValuesIn(operations20B()), kName);
INSTANTIATE_TEST_SUITE_P(Operations, Allocation30Test, ::testing::ValuesIn(operations30()), kName);

/// A signature whose block malloc does not have; the kernel then refuses to read into it.
class MissingBlockTest : public OpenBusTest
{
protected:
    void expectThatTheReadDecides(AuthChipDriver& driver, bool protocol30, int length)
    {
        arrangeHealthyChip(m_bus, protocol30);
        // A length that nothing else allocates.
        m_bus.holds(0x11, {static_cast<U8>(length >> 8), static_cast<U8>(length & 0xff)}).failsReadsOf(0x12);
        const Bytes challenge = counting(32);
        U8 byte = 0;
        U8* response = &byte;
        int responseLength = 0;
        Error error = Success;
        {
            const allocations::Refusal refusal(static_cast<std::size_t>(length));
            error = driver.newSignature(challenge.data(), 32, &response, &responseLength);
        }

        EXPECT_EQ(ErrorI2C, error);
        EXPECT_EQ(nullptr, response);
        EXPECT_EQ(length, responseLength);
        const std::string read = "read " + std::to_string(length);
        EXPECT_THAT(m_bus.conversation(), ::testing::EndsWith("write 12; " + repeated(100, read) + "; unlock"));
    }
};

TEST_F(MissingBlockTest, TheResultOfMallocIsNotCheckedOn20B)
{
    AuthChipDriver20B driver;
    expectThatTheReadDecides(driver, false, 33333);
    EXPECT_EQ("ERROR Failed to read signature data", lines().back());
}

TEST_F(MissingBlockTest, TheResultOfMallocIsNotCheckedOn30)
{
    AuthChipDriver30 driver;
    expectThatTheReadDecides(driver, true, 33333);
    EXPECT_EQ("ERROR Failed to read challenge response data", lines().back());
}

} // namespace
