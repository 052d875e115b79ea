#ifndef TESTS_SUPPORT_STOPPEDPROCESS_H
#define TESTS_SUPPORT_STOPPEDPROCESS_H

#include <functional>
#include <optional>

#include <sys/types.h>

namespace testsupport {

/// What came of a process that was to be stopped on its way.
struct StoppedRun
{
    bool wasStopped = false; // false: it had reached its end before
    int status = 0;          // as waitpid() tells it
};

/**
 * Runs @p body in another process, and @p act in this one while the other is at its stop number @p stop, counted from
 * 0: each system call has two stops, one before the kernel carries it out and one after. Then the other goes on to its
 * end. Returns nothing where the system does not let a process be traced.
 */
std::optional<StoppedRun> stopAtSystemCall(int stop, const std::function<void()>& body,
                                           const std::function<void(pid_t)>& act);

/// The same, and kills it there (SIGKILL). Returns whether it was killed.
std::optional<bool> killAtSystemCall(int stop, const std::function<void()>& body);

} // namespace testsupport

#endif
