#ifndef TESTS_SUPPORT_PRIVATELOCKS_H
#define TESTS_SUPPORT_PRIVATELOCKS_H

#include <memory>

#include <abstractionlibrary/globalmutex.h>

#include "tests/support/environmentvariable.h"
#include "tests/support/temporarydirectory.h"

namespace testsupport {

/**
 * Gives this process and its children a system-wide lock of their own, unlocked, by means of a key file in another
 * temporary directory. Tests that run at the same time then do not wait for each other. The destructor removes the
 * semaphore, also if processes that used it have died.
 *
 * Applies to locks constructed during its lifetime; the library's own transaction lock is older.
 */
class PrivateLocks
{
public:
    PrivateLocks();
    ~PrivateLocks();
    PrivateLocks(const PrivateLocks&) = delete;
    PrivateLocks& operator=(const PrivateLocks&) = delete;

private:
    /// The number of its semaphore.
    int semaphore() const;

    const TemporaryDirectory m_directory;
    const EnvironmentVariable m_folder;
    std::unique_ptr<VorelKestrel::AL::GlobalMutex> m_keeper; // creates the semaphore and keeps it
};

} // namespace testsupport

#endif
