#include "tests/support/killedprocess.h"

#include <csignal>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testsupport {

namespace {

constexpr int kCannotBeTraced = 3;

[[noreturn]] void runTraced(const std::function<void()>& body)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(kCannotBeTraced);
    raise(SIGSTOP);
    body();
    _exit(0);
}

/// Lets it run to its next stop. False if it has ended.
bool resume(pid_t process)
{
    int status = 0;
    ptrace(PTRACE_SYSCALL, process, nullptr, nullptr);
    return waitpid(process, &status, 0) == process && WIFSTOPPED(status);
}

} // namespace

std::optional<bool> killAtSystemCall(int stop, const std::function<void()>& body)
{
    const pid_t process = fork();
    if (process == 0)
        runTraced(body);
    int status = 0;
    waitpid(process, &status, 0);
    if (!WIFSTOPPED(status))
        return std::nullopt;
    ptrace(PTRACE_SETOPTIONS, process, nullptr, PTRACE_O_EXITKILL);
    resume(process); // the return from the call that stopped it
    for (int passed = 0; passed <= stop; ++passed) {
        if (!resume(process))
            return false;
    }
    kill(process, SIGKILL);
    waitpid(process, &status, 0);
    return true;
}

} // namespace testsupport
