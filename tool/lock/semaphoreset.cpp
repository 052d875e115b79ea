#include "tool/lock/semaphoreset.h"

#include <cerrno>
#include <fstream>
#include <limits>

#include <sys/ipc.h>
#include <sys/sem.h>

namespace VorelKestrel::Tool {
namespace {

constexpr char kList[] = "/proc/sysvipc/sem";

/// Without /proc: asks the kernel, which answers only if this user may read the set.
std::optional<SemaphoreSet> askForSet(int number)
{
    semid_ds status = {};
    SemaphoreArgument argument = {};
    argument.status = &status;
    if (controlSemaphore(number, 0, IPC_STAT, argument) < 0)
        return std::nullopt;
    const ipc_perm& permission = status.sem_perm;
    constexpr unsigned kRights = 0777;
    return SemaphoreSet{permission.__key,
                        number,
                        static_cast<unsigned>(status.sem_nsems),
                        {permission.uid, permission.gid, permission.mode & kRights},
                        permission.cuid};
}

} // namespace

std::vector<SemaphoreSet> semaphoreSets()
{
    std::ifstream list(kList);
    constexpr auto kRestOfLine = std::numeric_limits<std::streamsize>::max();
    list.ignore(kRestOfLine, '\n'); // the column names
    std::vector<SemaphoreSet> sets;
    SemaphoreSet set;
    gid_t creatorsGroup = 0;
    while (list >> set.key >> set.number >> std::oct >> set.rights.mode >> std::dec >> set.size >> set.rights.owner >>
           set.rights.group >> set.creator >> creatorsGroup) {
        sets.push_back(set);
        list.ignore(kRestOfLine, '\n');
    }
    return sets;
}

std::optional<SemaphoreSet> findSemaphoreSet(int number)
{
    for (const SemaphoreSet& set : semaphoreSets()) {
        if (set.number == number)
            return set;
    }
    return askForSet(number);
}

int controlSemaphore(int set, int index, int command, SemaphoreArgument argument)
{
    return semctl(set, index, command, argument);
}

bool changeRights(int set, const LockRights& rights)
{
    semid_ds status = {};
    SemaphoreArgument argument = {};
    argument.status = &status;
    if (controlSemaphore(set, 0, IPC_STAT, argument) < 0)
        return false;
    status.sem_perm.uid = rights.owner;
    status.sem_perm.gid = rights.group;
    status.sem_perm.mode = static_cast<unsigned short>(rights.mode);
    return controlSemaphore(set, 0, IPC_SET, argument) == 0;
}

bool hasSemaphores()
{
    constexpr int kNone = 0; // a set that no system makes
    return semget(IPC_PRIVATE, kNone, 0) >= 0 || (errno != ENOSYS && errno != EPERM);
}

bool areSemaphoresExhausted()
{
    seminfo limits = {};
    seminfo used = {};
    SemaphoreArgument argument = {};
    argument.information = &limits;
    if (controlSemaphore(0, 0, IPC_INFO, argument) < 0)
        return false;
    argument.information = &used;
    if (controlSemaphore(0, 0, SEM_INFO, argument) < 0)
        return false;
    return used.semusz >= limits.semmni || used.semaem >= limits.semmns; // sets, semaphores in all sets
}

} // namespace VorelKestrel::Tool
