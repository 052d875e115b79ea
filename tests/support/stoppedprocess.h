#ifndef TESTS_SUPPORT_STOPPEDPROCESS_H
#define TESTS_SUPPORT_STOPPEDPROCESS_H

#include <functional>
#include <optional>

#include <sys/types.h>

namespace testsupport {

/// The result for a process that was to be stopped.
struct StoppedRun
{
    bool wasStopped = false; // false: it ended before that
    int status = 0;          // from waitpid()
};

/**
 * Runs @p body in another process, and @p act in this one while the other is at its stop number @p stop, from 0. Each
 * system call has two stops, before and after the kernel executes it. Then the other process runs to its end. Returns
 * nothing if the system allows no tracing.
 */
std::optional<StoppedRun> stopAtSystemCall(int stop, const std::function<void()>& body,
                                           const std::function<void(pid_t)>& act);

/// Kills it at that stop (SIGKILL). Returns whether it was killed.
std::optional<bool> killAtSystemCall(int stop, const std::function<void()>& body);

} // namespace testsupport

#endif
