#include "tests/tool/lock/lockfolder.h"

#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/keyfile.h"
#include "tool/lock/lockseed.h"

using namespace VorelKestrel::Tool;
using namespace testsupport;

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
    for (const int semaphore : m_seen)
        semctl(semaphore, 0, IPC_RMID);
    m_seen.clear();
    unlink(keyFile().c_str());
}

std::string LockFolder::keyFile() const
{
    return lockKeyFile(m_directory.path());
}
