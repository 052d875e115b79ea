#ifndef TESTS_SUPPORT_PRIVATELOCKS_H
#define TESTS_SUPPORT_PRIVATELOCKS_H

#include <memory>

#include <abstractionlibrary/globalmutex.h>

#include "tests/support/environmentvariable.h"
#include "tests/support/temporarydirectory.h"

namespace testsupport {

/**
 * Gives this process, and the ones that it starts, a system-wide lock of their own, unlocked: the key of a semaphore is
 * made from a file in the directory for temporary files. Tests that run at the same time then do not wait for each
 * other. Ends with the semaphore gone, also if processes died that had it.
 *
 * Counts for locks that are constructed while it lives; the library's own transaction lock is older.
 */
class PrivateLocks
{
public:
    PrivateLocks();
    ~PrivateLocks();
    PrivateLocks(const PrivateLocks&) = delete;
    PrivateLocks& operator=(const PrivateLocks&) = delete;

private:
    /// The system's number of it.
    int semaphore() const;

    const TemporaryDirectory m_directory;
    const EnvironmentVariable m_folder;
    std::unique_ptr<VorelKestrel::AL::GlobalMutex> m_keeper; // makes the semaphore, and keeps it until the end
};

} // namespace testsupport

#endif
