#ifndef TESTS_SUPPORT_ANOTHERUSER_H
#define TESTS_SUPPORT_ANOTHERUSER_H

#include <linux/capability.h>
#include <sys/types.h>

namespace testsupport {

constexpr uid_t kNobody = 65534;
constexpr gid_t kNogroup = 65534;

/// Makes this process one of another user, for good. Only root can, and not in every container.
bool becomeNobody();
/// Whether a process of ours could.
bool canBecomeNobody();
/// Whether this process has the right (CAP_...). In a container, root does without some.
bool hasRight(int capability);

} // namespace testsupport

#endif
