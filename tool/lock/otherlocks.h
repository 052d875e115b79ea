#ifndef TOOL_LOCK_OTHERLOCKS_H
#define TOOL_LOCK_OTHERLOCKS_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tool/lock/systemlock.h"

// Whether others may have another lock than the one that this process sees, as far as it can know.
namespace VorelKestrel::Tool {

/// A seed has made the key file since the machine started, and the semaphore here is not the seed's.
bool lacksSemaphoreOfSeed(const LockState& state);
/// The seeded locks of other folders. Only those that root or this user has made.
std::vector<SemaphoreSet> findSeedsElsewhere(const KeyFolder& folder, const LockState& state);
/// Whether the folder is one that systemd has made for a single service (PrivateTmp=). @p mounts is the process's
/// /proc/PID/mountinfo.
bool isOfOneService(const std::string& folder, std::istream& mounts);
/// The same for a folder of this process.
bool isOfOneService(const KeyFolder& folder);
/// What to do about it.
constexpr char kHowToShareTmp[] =
    "Set PrivateTmp=no in the service's unit, or name a folder outside of /tmp and /var/tmp "
    "in TMPDIR, the same for all\nwho use the bus.";

/// Whether this process has other semaphores than those that the machine has started with, as in a container.
bool hasSemaphoresOfItsOwn();

} // namespace VorelKestrel::Tool

#endif
