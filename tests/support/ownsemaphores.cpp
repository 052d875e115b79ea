#include "tests/support/ownsemaphores.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/support/interposition.h"

namespace testsupport {

namespace {

using SemgetFunction = int(key_t, int, int);

int g_error = 0; // with which the system refuses; 0: none

bool isThere(int semaphore)
{
    semid_ds state = {};
    return semctl(semaphore, 0, IPC_STAT, &state) == 0;
}

/// Which semaphore belongs to which key; in memory that a process and its children share.
class Semaphores
{
public:
    int numberOf(key_t key)
    {
        for (Entry& entry : m_entries) {
            if (entry.isUsed && entry.key == key && isThere(entry.semaphore))
                return entry.semaphore;
        }
        return -1;
    }

    /// Reuses the place of a removed one, if any.
    void add(key_t key, int semaphore)
    {
        auto* const place = std::find_if(m_entries.begin(), m_entries.end(),
                                         [](const Entry& entry) { return !entry.isUsed || !isThere(entry.semaphore); });
        if (place == m_entries.end())
            std::abort(); // more than any test needs
        *place = {true, key, semaphore};
    }

    int count() const
    {
        return static_cast<int>(std::count_if(m_entries.begin(), m_entries.end(), [](const Entry& entry) {
            return entry.isUsed && isThere(entry.semaphore);
        }));
    }

private:
    struct Entry
    {
        bool isUsed;
        key_t key;
        int semaphore;
    };

    std::array<Entry, 64> m_entries = {};
};

/// Created at the first use, because the library creates its lock before this program's objects are constructed.
Semaphores& semaphores()
{
    static auto* const semaphores =
        new (mmap(nullptr, sizeof(Semaphores), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Semaphores;
    return *semaphores;
}

/// For apart, which removes the leftovers of a process that did not end normally. Bypasses the fake bus.
void writeDown(int semaphore)
{
    const char* const folder = std::getenv("AUTHCHIP_TEST_APART");
    if (folder == nullptr)
        return;
    std::array<char, 4096> text = {};
    std::snprintf(text.data(), text.size(), "%s/semaphores", folder);
    const auto file =
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, text.data(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    const int length = std::snprintf(text.data(), text.size(), "%d\n", semaphore);
    syscall(SYS_write, file, text.data(), static_cast<std::size_t>(length));
    syscall(SYS_close, file);
}

int getOwn(key_t key, int count, int flags)
{
    static auto* const next = nextDefinition<SemgetFunction>("semget");
    const int found = semaphores().numberOf(key);
    if (found >= 0 && (flags & IPC_CREAT) != 0 && (flags & IPC_EXCL) != 0) {
        errno = EEXIST;
        return -1;
    }
    if (found >= 0)
        return found;
    if ((flags & IPC_CREAT) == 0) {
        errno = ENOENT;
        return -1;
    }
    const int made = next(IPC_PRIVATE, count, flags);
    if (made >= 0) {
        semaphores().add(key, made);
        writeDown(made);
    }
    return made;
}

} // namespace

extern "C" {

int ownSemget(key_t key, int count, int flags) SPELLING("semget");

int ownSemget(key_t key, int count, int flags)
{
    static std::mutex mutex; // threads also create locks
    const std::lock_guard<std::mutex> guard(mutex);
    if (g_error != 0) {
        errno = g_error;
        return -1;
    }
    return getOwn(key, count, flags);
}

} // extern "C"

int ownsemaphores::count()
{
    return semaphores().count();
}

void ownsemaphores::refuse(int error)
{
    g_error = error;
}

} // namespace testsupport
