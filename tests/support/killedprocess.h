#ifndef TESTS_SUPPORT_KILLEDPROCESS_H
#define TESTS_SUPPORT_KILLEDPROCESS_H

#include <functional>
#include <optional>

namespace testsupport {

/**
 * Runs @p body in another process and kills it (SIGKILL) at its stop number @p stop, counted from 0: each system call
 * has two stops, one before the kernel carries it out and one after. Returns whether it was killed: false, it had
 * reached its end before. Returns nothing where the system does not let a process be traced.
 */
std::optional<bool> killAtSystemCall(int stop, const std::function<void()>& body);

} // namespace testsupport

#endif
