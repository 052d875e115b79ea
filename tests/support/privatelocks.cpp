#include "tests/support/privatelocks.h"

#include <stdexcept>

#include <sys/sem.h>

#include "tests/support/keyfile.h"

namespace testsupport {

PrivateLocks::PrivateLocks() : m_folder("TMPDIR", m_directory.path())
{
    makeKeyFileOfItsOwn(keyFileIn(m_directory.path()));
    m_keeper = std::make_unique<VorelKestrel::AL::GlobalMutex>();
    if (semaphore() == -1)
        throw std::runtime_error("the lock between processes has another key file than " +
                                 keyFileIn(m_directory.path()));
}

PrivateLocks::~PrivateLocks()
{
    semctl(semaphore(), 0, IPC_RMID);
    m_keeper.reset();
}

int PrivateLocks::semaphore() const
{
    return semaphoreOf(keyFileIn(m_directory.path()));
}

} // namespace testsupport
