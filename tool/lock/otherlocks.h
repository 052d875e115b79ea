#ifndef TOOL_LOCK_OTHERLOCKS_H
#define TOOL_LOCK_OTHERLOCKS_H

#include <vector>

#include "tool/lock/systemlock.h"

// Whether others may have another lock than the one that this process sees, as far as it can know.
namespace VorelKestrel::Tool {

/// A seed has made the key file since the machine started, and the semaphore here is not the seed's.
bool lacksSemaphoreOfSeed(const LockState& state);
/// The seeded locks of other folders. Only those that root or this user has made.
std::vector<SemaphoreSet> findSeedsElsewhere(const KeyFolder& folder, const LockState& state);
/// Whether this process has other semaphores than those that the machine has started with, as in a container.
bool hasSemaphoresOfItsOwn();

} // namespace VorelKestrel::Tool

#endif
