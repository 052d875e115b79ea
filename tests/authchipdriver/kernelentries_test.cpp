// Which system calls an operation really makes, seen from outside: a tracer counts every entry into the kernel.

#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"
#include "tests/support/kerneltrace.h"
#include "tests/support/operations.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;

namespace {

/// A bus whose transfers and locks each enter the kernel once, as on a real device.
class KernelBus : public FakeBus
{
public:
    explicit KernelBus(Journal& journal) : FakeBus(journal) { forwardsTransfers(); }

    bool answersForPausesAndLocks() override { return false; }
};

template<typename Driver>
void expectExactly(const DriverOperation& operation, bool protocol30)
{
    const auto calls = tracedSystemCalls([&](const std::function<void()>& mark) {
        log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        Journal journal;
        KernelBus bus(journal);
        arrangeHealthyChip(bus, protocol30);
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
        Driver driver;
        operation.call(driver); // the first time, so that the allocator has what it needs
        mark();
        const int failed = operation.call(driver);
        mark();
        return failed == 0;
    });
    if (!calls)
        GTEST_SKIP() << "this system does not let a process be traced";
    std::vector<std::string> expected = {"semop"};
    expected.insert(expected.end(), operation.transfers.begin(), operation.transfers.end());
    expected.emplace_back("semop");
    EXPECT_EQ(expected, *calls);
}

class KernelEntries20BTest : public ::testing::TestWithParam<DriverOperation>
{};
class KernelEntries30Test : public ::testing::TestWithParam<DriverOperation>
{};

TEST_P(KernelEntries20BTest, BetweenLockAndUnlockThereAreExactlyTheTransfersOfTheExchange)
{
    expectExactly<AuthChipDriver20B>(GetParam(), false);
}

TEST_P(KernelEntries30Test, BetweenLockAndUnlockThereAreExactlyTheTransfersOfTheExchange)
{
    expectExactly<AuthChipDriver30>(GetParam(), true);
}

const auto kName = [](const auto& operation) { return std::string(operation.param.name); };
INSTANTIATE_TEST_SUITE_P(Operations, KernelEntries20BTest, ::testing::ValuesIn(operations20B()), kName);
INSTANTIATE_TEST_SUITE_P(Operations, KernelEntries30Test, ::testing::ValuesIn(operations30()), kName);

} // namespace
