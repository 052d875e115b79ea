#ifndef TOOL_LOCK_SEMAPHORESET_H
#define TOOL_LOCK_SEMAPHORESET_H

#include <optional>
#include <vector>

#include <sys/types.h>

struct semid_ds; // of the C library
struct seminfo;

namespace VorelKestrel::Tool {

/// The owner and the rights of a semaphore.
struct LockRights
{
    uid_t owner = 0;
    gid_t group = 0;
    unsigned mode = 0;

    bool operator==(const LockRights& other) const
    {
        return owner == other.owner && group == other.group && mode == other.mode;
    }
};

/// A set of semaphores as the kernel lists it, readable also by users who may not use it.
struct SemaphoreSet
{
    key_t key = -1;
    int number = -1;
    unsigned size = 0; // number of semaphores; never changes
    LockRights rights;
    uid_t creator = 0; // never changes, unlike the owner; can always remove the set
};

/// All sets of this IPC namespace.
std::vector<SemaphoreSet> semaphoreSets();
/// The set of this number; none if it is gone.
std::optional<SemaphoreSet> findSemaphoreSet(int number);

/// The argument of semctl(). The C library leaves its definition to callers.
union SemaphoreArgument
{
    int value;
    semid_ds* status;
    unsigned short* values;
    seminfo* information;
};

/// semctl() for the semaphore at @p index: -1 and errno if refused.
int controlSemaphore(int set, int index, int command, SemaphoreArgument argument = {});
/// Gives the set other rights. False and errno if refused.
bool changeRights(int set, const LockRights& rights);
/// Whether this process may ask the kernel for semaphores at all.
bool hasSemaphores();
/// Whether the system has no set or no semaphore left.
bool areSemaphoresExhausted();

} // namespace VorelKestrel::Tool

#endif
