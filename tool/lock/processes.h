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
    std::string keyFile;          // of its lock, as a path that this process can open
    bool sharesSemaphores = true; // false: it runs in a container with its own semaphores
    uid_t user = 0;
    std::set<gid_t> groups;
    bool mayUseAnySemaphore = false; // as root may

    /// Whether the system lets it take a token.
    bool mayUse(const LockRights& rights) const;
};

/// Whether the process has not ended yet.
bool isThere(const BusUser& user);

/// Searches the processes that this one may inspect: as root all, otherwise those of the same user.
std::vector<BusUser> findBusUsers(const std::string& device);
/// The other processes that have loaded the library and have its key file in this folder. Searches the same processes.
std::vector<pid_t> findLibraryUsers(const KeyFolder& folder);

} // namespace VorelKestrel::Tool

#endif
