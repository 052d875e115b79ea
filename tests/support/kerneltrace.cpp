#include "tests/support/kerneltrace.h"

#include <csignal>
#include <stdexcept>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testsupport {

namespace {

constexpr long kMarker = SYS_getppid; // the call that the traced child uses as a mark
constexpr int kNotTraceable = 77;     // exit statuses of the child
constexpr int kFailed = 1;

[[noreturn]] void runTraced(const TracedAction& action)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(kNotTraceable);
    raise(SIGSTOP);
    _exit(action([] { syscall(kMarker); }) ? 0 : kFailed);
}

std::string nameOfCall(unsigned long long number)
{
    switch (number) {
    case SYS_read:
        return "read";
    case SYS_write:
        return "write";
    case SYS_semop:
    case SYS_semtimedop:
        return "semop";
    case SYS_clock_gettime:
    case SYS_gettimeofday:
        return "clock";
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
                calls.push_back(nameOfCall(info.entry.nr));
        }
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
    }
    return calls;
}

} // namespace

std::optional<std::vector<std::string>> tracedSystemCalls(const TracedAction& action)
{
    const pid_t child = fork();
    if (child == 0)
        runTraced(action);
    int status = 0;
    auto calls = trace(child, status);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotTraceable)
        return std::nullopt;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("what was traced did not go well");
    return calls;
}

} // namespace testsupport
