#include "tests/support/allocations.h"

#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"
#include "tests/support/operations.h"

using namespace VorelKestrel::ACD;

namespace {

/// A bus whose own allocations do not count.
class UncountedBus : public FakeBus
{
public:
    using FakeBus::FakeBus;

    ssize_t read(int descriptor, void* data, std::size_t count) override
    {
        const allocations::Pause pause;
        return FakeBus::read(descriptor, data, count);
    }
    ssize_t write(int descriptor, const void* data, std::size_t count) override
    {
        const allocations::Pause pause;
        return FakeBus::write(descriptor, data, count);
    }
    int changeSemaphore(int delta) override
    {
        const allocations::Pause pause;
        return FakeBus::changeSemaphore(delta);
    }
};

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

} // namespace
