#ifndef TESTS_TOOL_LOCK_LOCKFOLDER_H
#define TESTS_TOOL_LOCK_LOCKFOLDER_H

#include <string>
#include <vector>

#include "tests/support/environmentvariable.h"
#include "tests/support/temporarydirectory.h"
#include "tool/lock/systemlock.h"

/**
 * A directory for temporary files of the test's own, in which there is no lock yet, unlike in that of PrivateLocks.
 * Every user may look into it. Takes the semaphores away that were seen in it.
 */
class LockFolder
{
public:
    LockFolder();
    ~LockFolder();
    LockFolder(const LockFolder&) = delete;
    LockFolder& operator=(const LockFolder&) = delete;

    /// The lock of whoever has this TMPDIR.
    VorelKestrel::Tool::LockState look();
    /// Makes a key file of which there is no semaphore.
    void makeKeyFile() const;
    /// Makes one for the group, as 'authchip lock seed' does.
    void seed(gid_t group = 0, unsigned mode = 0660) const;
    /// For those who wait for one that is nowhere.
    void giveToken();
    /// Ends with no key file and none of the semaphores that were seen.
    void clear();
    std::string keyFile() const;

private:
    const testsupport::TemporaryDirectory m_directory;
    const testsupport::EnvironmentVariable m_variable;
    std::vector<int> m_seen;
};

#endif
