#ifndef TOOL_LOCK_LOCKSEED_H
#define TOOL_LOCK_LOCKSEED_H

#include <optional>
#include <string>
#include <vector>

#include "tool/lock/systemlock.h"

namespace VorelKestrel::Tool {

/*
 * How a lock is made that stays
 *
 * The library goes by a key file: its device and inode give the key, the key gives the semaphore. The process that
 * comes first makes both, and removes both at its exit. A seed makes both before, so that no process of the library's
 * does.
 *
 * Whom it trusts     root and the user who runs it. Key file, semaphore and folder have to be theirs: the file's owner,
 *                    the semaphore's creator (whom no change of rights changes), and a folder that is sticky or that
 *                    others cannot write to. Whatever somebody else has put there is replaced if nobody uses it, and
 *                    refused if somebody may.
 * What marks a lock  The semaphore is the first of a set of three; the library's sets have one. So the kernel keeps the
 *                    mark: nobody can forge it but a user whom nobody trusts, and it is gone after a reboot, which a
 *                    mark in the file is not. The other two hold the identity of the folder: by that, a set whose key
 *                    file is lost is known again. The key file has a mode that the library never gives to a file.
 * What is written    Nothing that was found. The file is made anew under a name of its own, then the semaphore with its
 *                    rights and its token, and then the file is put in place. That one call makes the lock: before, no
 *                    process can find it; after, it is complete. Only the identity is written later: a set that has
 *                    none was never in place.
 * What if it dies    Before that call, a draft stays behind: the next seed removes it and its semaphore. After, at most
 *                    the draft's second name and the missing identity do: the next seed removes the one and writes
 *                    the other. Signals wait until the seed is done; only SIGKILL ends it half-way.
 * What of two        One waits for the other: a seed locks the folder (flock). Nothing depends on it but the
 *                    replacement of what somebody else has put there.
 */

/// What is not asked for stays as it is; a new lock is for this user and its group, mode 0660.
struct WantedRights
{
    std::optional<gid_t> group;
    std::optional<unsigned> mode;
};

enum class SeedResult
{
    Made,
    TakenUp, // made by an earlier seed; the key file was lost
    RightsChanged,
    Unchanged
};

/**
 * Makes the lock, free, so that it belongs to no process that uses the library.
 *
 * Requires:  this process has not loaded the library, which would have made a lock already.
 * Errors:    Failure; then all is as before.
 */
SeedResult seedLock(const std::string& keyFile, const WantedRights& wanted);

/// Removes the lock, and every one that an earlier seed made here. False: there was none. Throws Failure.
bool removeLock(const std::string& keyFile);

} // namespace VorelKestrel::Tool

#endif
