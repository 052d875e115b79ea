#ifndef TOOL_LOCK_LOCKSEED_H
#define TOOL_LOCK_LOCKSEED_H

#include <optional>
#include <string>
#include <vector>

#include "tool/lock/systemlock.h"

namespace VorelKestrel::Tool {

/*
 * How 'authchip lock seed' creates a lock that stays
 *
 * The library finds the lock through a key file: the file's device and inode give the key, the key gives the
 * semaphore. The first process that uses the library creates file and semaphore, and removes them when it exits. A seed
 * creates them earlier, so that no such process does.
 *
 * Trust           The seed trusts root and the user who runs it. They must own the key file, have created the
 *                 semaphore (its creator never changes), and own the folder, which must be sticky or closed to others.
 *                 What another user has put there is replaced if no process uses it, and refused otherwise.
 * Mark of a seed  The semaphore is the first of a set of three; the library's sets have one. The kernel keeps this
 *                 mark and the set's creator, so no other user can forge it, and a reboot removes it, unlike a mark in
 *                 the file. The other two semaphores hold the identity of the folder, so that a set can be found when
 *                 its key file is lost. The key file has a mode that the library never uses.
 * Order           Nothing that was found is changed. The seed creates the file under a name of its own, then the
 *                 semaphore with its rights and its token, and then puts the file in place. That one call creates the
 *                 lock: before it no process finds the lock, after it the lock is complete. Only the identity is
 *                 written later; a set without identity was never in place.
 * If it dies      Before that call a draft is left over, and the next seed removes it and its semaphore. After it, at
 *                 most the draft's second name and the missing identity are left; the next seed removes the name and
 *                 writes the identity. Signals are blocked; only SIGKILL stops a seed half-way.
 * Two seeds       One waits for the other, because a seed locks the folder (flock). Only the replacement of another
 *                 user's file depends on this.
 */

/// What is empty stays as it is. A new lock is for this user and its group, mode 0660.
struct WantedRights
{
    std::optional<gid_t> group;
    std::optional<unsigned> mode;
};

enum class SeedResult
{
    Made,
    TakenUp, // the set of an earlier seed is reused; its key file was lost
    RightsChanged,
    Unchanged
};

/**
 * Creates the lock, free, so that no process that uses the library removes it.
 *
 * Requires:  this process has not loaded the library, which would have created a lock already.
 * Errors:    Failure; then nothing has changed.
 */
SeedResult seedLock(const std::string& keyFile, const WantedRights& wanted);

/// Removes the lock, and all locks that earlier seeds created here. Returns false if there was none. Throws Failure.
bool removeLock(const std::string& keyFile);

} // namespace VorelKestrel::Tool

#endif
