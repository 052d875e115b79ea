#ifndef TOOL_LOCK_PROCESSES_H
#define TOOL_LOCK_PROCESSES_H

#include <set>
#include <string>
#include <vector>

#include <sys/types.h>

#include "tool/lock/systemlock.h"

namespace VorelKestrel::Tool {

/// A process that has loaded the library and opened the bus's node.
struct BusUser
{
    pid_t process = 0;
    std::string keyFile;          // of its lock, as this process can look at it
    bool sharesSemaphores = true; // false: it lives in a container that has its own
    uid_t user = 0;
    std::set<gid_t> groups;
    bool mayUseAnySemaphore = false; // a right that root has

    /// Whether the system lets it take a token.
    bool mayUse(const LockRights& rights) const;
};

/// Whether the process has not ended yet.
bool isThere(const BusUser& user);

/// Finds them among the processes that this one may look into: root sees all, others see their own user's.
std::vector<BusUser> findBusUsers(const std::string& device);
/// The other processes that have loaded the library and keep its key file in this folder, among the same.
std::vector<pid_t> findLibraryUsers(const KeyFolder& folder);

} // namespace VorelKestrel::Tool

#endif
