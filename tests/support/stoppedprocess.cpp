#include "tests/support/stoppedprocess.h"

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
bool resume(pid_t process, int& status)
{
    ptrace(PTRACE_SYSCALL, process, nullptr, nullptr);
    return waitpid(process, &status, 0) == process && WIFSTOPPED(status);
}

} // namespace

std::optional<StoppedRun> stopAtSystemCall(int stop, const std::function<void()>& body,
                                           const std::function<void(pid_t)>& act)
{
    const pid_t process = fork();
    if (process == 0)
        runTraced(body);
    StoppedRun run;
    waitpid(process, &run.status, 0);
    if (!WIFSTOPPED(run.status))
        return std::nullopt;
    ptrace(PTRACE_SETOPTIONS, process, nullptr, PTRACE_O_EXITKILL);
    resume(process, run.status); // the return from the call that stopped it
    for (int passed = 0; passed <= stop; ++passed) {
        if (!resume(process, run.status))
            return run;
    }
    run.wasStopped = true;
    act(process);
    ptrace(PTRACE_DETACH, process, nullptr, nullptr);
    waitpid(process, &run.status, 0);
    return run;
}

std::optional<bool> killAtSystemCall(int stop, const std::function<void()>& body)
{
    const auto run = stopAtSystemCall(stop, body, [](pid_t process) { kill(process, SIGKILL); });
    return run ? std::optional<bool>(run->wasStopped) : std::nullopt;
}

} // namespace testsupport
