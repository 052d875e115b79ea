#include "tests/tool/lock/lockfolder.h"

#include <cstdlib>

#include <fcntl.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tool/lock/lockseed.h"

using namespace VorelKestrel::Tool;

namespace {

constexpr char kVariable[] = "TMPDIR";

std::string valueOf(const char* variable)
{
    const char* const value = std::getenv(variable);
    return value == nullptr ? "" : value;
}

} // namespace

LockFolder::LockFolder() : m_before(valueOf(kVariable)), m_wasSet(std::getenv(kVariable) != nullptr)
{
    chmod(m_directory.path().c_str(), 0755);
    setenv(kVariable, m_directory.path().c_str(), 1);
}

LockFolder::~LockFolder()
{
    clear();
    if (m_wasSet)
        setenv(kVariable, m_before.c_str(), 1);
    else
        unsetenv(kVariable);
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
    constexpr mode_t kAsQt = 0640;
    close(open(keyFile().c_str(), O_CREAT | O_CLOEXEC, kAsQt));
    semctl(lookAtLock(keyFile()).semaphore, 0, IPC_RMID);
}

void LockFolder::seed(gid_t group, unsigned mode)
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
