#include "tests/tool/lock/lockfolder.h"

#include <cerrno>

#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/anotheruser.h"
#include "tests/support/childprocess.h"
#include "tests/support/keyfile.h"
#include "tool/lock/lockseed.h"

using namespace VorelKestrel::Tool;
using namespace testsupport;

namespace {

/// In a container not even root removes another user's semaphores; but it can become that user.
void removeAsNobody(const std::vector<int>& semaphores)
{
    const ChildProcess nobody([&] {
        becomeNobody();
        for (const int semaphore : semaphores)
            semctl(semaphore, 0, IPC_RMID);
    });
}

} // namespace

LockFolder::LockFolder() : m_variable("TMPDIR", m_directory.path())
{
    chmod(m_directory.path().c_str(), 0755);
}

LockFolder::~LockFolder()
{
    clear();
}

LockState LockFolder::look()
{
    LockState state = lookAtLock(keyFile());
    if (state.semaphore >= 0)
        m_seen.push_back(state.semaphore);
    return state;
}

void LockFolder::makeKeyFile() const
{
    makeKeyFileOfItsOwn(keyFile());
}

void LockFolder::seed(gid_t group, unsigned mode) const
{
    seedLock(keyFile(), {group, mode});
}

void LockFolder::giveToken()
{
    semctl(look().semaphore, 0, SETVAL, 1);
}

void LockFolder::clear()
{
    look();
    std::vector<int> ofNobody;
    for (const int semaphore : m_seen) {
        if (semctl(semaphore, 0, IPC_RMID) != 0 && errno == EPERM)
            ofNobody.push_back(semaphore);
    }
    m_seen.clear();
    if (!ofNobody.empty())
        removeAsNobody(ofNobody);
    unlink(keyFile().c_str());
}

std::string LockFolder::keyFile() const
{
    return lockKeyFile(m_directory.path());
}
