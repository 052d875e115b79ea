#ifndef TESTS_SUPPORT_KERNELTRACE_H
#define TESTS_SUPPORT_KERNELTRACE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace testsupport {

/// What is traced: it calls @p mark before and after the part that counts, and returns whether it went well.
using TracedAction = std::function<bool(const std::function<void()>& mark)>;

/**
 * The names of the system calls that a process makes between its two marks, seen from outside: @p action runs in a
 * child. Calls other than those of an exchange are named by their number. Returns nothing where the system does not let
 * a process be traced; throws std::runtime_error if the action did not go well.
 */
std::optional<std::vector<std::string>> tracedSystemCalls(const TracedAction& action);

} // namespace testsupport

#endif
