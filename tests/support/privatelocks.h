#ifndef TESTS_SUPPORT_PRIVATELOCKS_H
#define TESTS_SUPPORT_PRIVATELOCKS_H

#include <cstdlib>
#include <string>

#include "tests/support/temporarydirectory.h"

/**
 * Gives this process, and the ones that it starts, system-wide locks of their own: the key of a semaphore is made from
 * a file in the directory for temporary files. Tests that run at the same time then do not wait for each other.
 *
 * Counts for locks that are constructed while it lives; the library's own transaction lock is older.
 */
class PrivateLocks
{
public:
    PrivateLocks() { setenv(kVariable, m_directory.path().c_str(), 1); }
    ~PrivateLocks()
    {
        if (m_wasSet)
            setenv(kVariable, m_before.c_str(), 1);
        else
            unsetenv(kVariable);
    }
    PrivateLocks(const PrivateLocks&) = delete;
    PrivateLocks& operator=(const PrivateLocks&) = delete;

private:
    static constexpr const char* kVariable = "TMPDIR";

    const bool m_wasSet = std::getenv(kVariable) != nullptr;
    const std::string m_before = m_wasSet ? std::getenv(kVariable) : "";
    TemporaryDirectory m_directory;
};

#endif
