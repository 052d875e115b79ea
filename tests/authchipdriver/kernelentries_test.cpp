// Which system calls an operation really makes, seen from outside: a tracer counts every entry into the kernel.

#include <csignal>
#include <cstdlib>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"
#include "tests/support/operations.h"

using namespace VorelKestrel::ACD;

namespace {

constexpr long kMarker = SYS_getppid; // what the traced child calls before and after the operation
constexpr int kNotTraceable = 77;

/// A bus whose transfers and locks enter the kernel, each once, as on a real device.
class KernelBus : public FakeBus
{
public:
    explicit KernelBus(Journal& journal) : FakeBus(journal) { forwardsTransfers(); }

    bool answersForPausesAndLocks() override { return false; }
};

template<typename Driver>
[[noreturn]] void runTraced(const Operation& operation, bool protocol30)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(kNotTraceable);
    log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
    Journal journal;
    KernelBus bus(journal);
    arrangeHealthyChip(bus, protocol30);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    Driver driver;
    operation.call(driver); // the first time, so that the allocator has what it needs
    raise(SIGSTOP);
    syscall(kMarker);
    const int failed = operation.call(driver);
    syscall(kMarker);
    _exit(failed);
}

std::string nameOf(unsigned long long number)
{
    switch (number) {
    case SYS_read:
        return "read";
    case SYS_write:
        return "write";
    case SYS_semop:
    case SYS_semtimedop:
        return "semop";
    default:
        return "system call " + std::to_string(number);
    }
}

/// The system calls of the child between its two markers; its exit status goes to @p status.
std::vector<std::string> trace(pid_t child, int& status)
{
    std::vector<std::string> calls;
    bool between = false;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (!WIFEXITED(status) && !WIFSIGNALED(status)) {
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof(info), &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
            if (static_cast<long>(info.entry.nr) == kMarker)
                between = !between;
            else if (between)
                calls.push_back(nameOf(info.entry.nr));
        }
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
    }
    return calls;
}

template<typename Driver>
void expectExactly(const Operation& operation, bool protocol30)
{
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0)
        runTraced<Driver>(operation, protocol30);
    int status = 0;
    const std::vector<std::string> calls = trace(child, status);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotTraceable)
        GTEST_SKIP() << "this system does not let a process be traced";
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(0, WEXITSTATUS(status));
    std::vector<std::string> expected = {"semop"};
    expected.insert(expected.end(), operation.transfers.begin(), operation.transfers.end());
    expected.emplace_back("semop");
    EXPECT_EQ(expected, calls);
}

class KernelEntries20BTest : public ::testing::TestWithParam<Operation>
{};
class KernelEntries30Test : public ::testing::TestWithParam<Operation>
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
