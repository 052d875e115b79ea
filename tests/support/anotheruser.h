#ifndef TESTS_SUPPORT_ANOTHERUSER_H
#define TESTS_SUPPORT_ANOTHERUSER_H

#include <linux/capability.h>
#include <sys/types.h>

namespace testsupport {

constexpr uid_t kNobody = 65534;
constexpr gid_t kNogroup = 65534;

/// Turns this process into one of another user, permanently. Only root can do this, and not in every container.
bool becomeNobody();
/// Whether this would succeed.
bool canBecomeNobody();
/// Whether this process has the right (CAP_...). In a container, root lacks some.
bool hasRight(int capability);

} // namespace testsupport

#endif
