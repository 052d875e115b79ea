#include "tests/support/ownsemaphores.h"

#include <cerrno>
#include <fstream>
#include <set>
#include <string>
#include <sys/ipc.h>
#include <unistd.h>

#include "tests/support/allocations.h"
#include "tests/support/interposition.h"

namespace {

int g_error = 0; // the system's, while it refuses

/// Made at the first use: the library makes its lock before this program's objects are constructed.
std::set<int>& semaphores()
{
    static std::set<int> semaphores;
    return semaphores;
}

} // namespace

extern "C" {

int ownSemget(key_t key, int count, int flags) SPELLING("semget");

int ownSemget(key_t key, int count, int flags)
{
    static auto* const next = nextDefinition<int(key_t, int, int)>("semget");
    if (g_error != 0) {
        errno = g_error;
        return -1;
    }
    static const pid_t process = getpid(); // the children that it starts share with it
    const int semaphore = next(key ^ process, count, flags);
    const int error = errno;
    const allocations::Pause pause; // the record is not the library's
    if (semaphore >= 0)
        semaphores().insert(semaphore);
    errno = error;
    return semaphore;
}

} // extern "C"

int ownsemaphores::count()
{
    std::ifstream table("/proc/sysvipc/sem");
    std::string line;
    std::getline(table, line); // the titles
    std::set<int> living;
    long key = 0;
    int semaphore = 0;
    while (table >> key >> semaphore && std::getline(table, line)) {
        if (semaphores().count(semaphore) > 0)
            living.insert(semaphore);
    }
    semaphores().swap(living); // the others are gone for good
    return static_cast<int>(semaphores().size());
}

void ownsemaphores::refuse(int error)
{
    g_error = error;
}
