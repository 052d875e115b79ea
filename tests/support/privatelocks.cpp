#include "tests/support/privatelocks.h"

#include <cstdlib>
#include <filesystem>
#include <sys/ipc.h>
#include <sys/sem.h>

namespace {

constexpr char kVariable[] = "TMPDIR";
constexpr int kProject = 'Q'; // what Qt makes its keys with, beside the file

std::string valueOf(const char* variable)
{
    const char* const value = std::getenv(variable);
    return value == nullptr ? "" : value;
}

} // namespace

PrivateLocks::PrivateLocks() : m_wasSet(std::getenv(kVariable) != nullptr), m_before(valueOf(kVariable))
{
    setenv(kVariable, m_directory.path().c_str(), 1);
    m_keeper = std::make_unique<VorelKestrel::AL::GlobalMutex>();
    // A test that was killed may have left a semaphore behind, and its file's number may be in use again.
    semctl(semaphore(), 0, SETVAL, 1);
}

PrivateLocks::~PrivateLocks()
{
    semctl(semaphore(), 0, IPC_RMID);
    m_keeper.reset();
    if (m_wasSet)
        setenv(kVariable, m_before.c_str(), 1);
    else
        unsetenv(kVariable);
}

int PrivateLocks::semaphore() const
{
    const std::filesystem::directory_iterator file(m_directory.path());
    return semget(ftok(file->path().c_str(), kProject), 0, 0);
}
