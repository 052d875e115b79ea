#ifndef TESTS_SUPPORT_KERNELTRACE_H
#define TESTS_SUPPORT_KERNELTRACE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace testsupport {

/// The traced action: calls @p mark before and after the part that counts, and returns whether it succeeded.
using TracedAction = std::function<bool(const std::function<void()>& mark)>;

/**
 * The names of the system calls of a process between its two marks. @p action runs in a traced child process. Calls
 * that are not part of an exchange are named by their number. Returns nothing if the system allows no tracing; throws
 * std::runtime_error if the action failed.
 */
std::optional<std::vector<std::string>> tracedSystemCalls(const TracedAction& action);

} // namespace testsupport

#endif
