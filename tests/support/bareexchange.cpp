#include "tests/support/bareexchange.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace {

/// With SEM_UNDO, as the library's lock does it: the kernel has the same to do.
void change(int semaphores, short delta)
{
    sembuf operation = {0, delta, SEM_UNDO};
    semop(semaphores, &operation, 1);
}

} // namespace

BareExchange::BareExchange(InstantDevice& device, const std::function<void()>& operation)
    : m_semaphores(semget(IPC_PRIVATE, 1, 0600))
{
    semctl(m_semaphores, 0, SETVAL, 1);
    device.recordTo(&m_messages);
    operation();
    device.recordTo(nullptr);
}

BareExchange::~BareExchange()
{
    semctl(m_semaphores, 0, IPC_RMID);
}

void BareExchange::run(int descriptor)
{
    change(m_semaphores, -1);
    for (auto& message : m_messages) {
        if (message.isWrite)
            static_cast<void>(!write(descriptor, message.bytes.data(), message.bytes.size()));
        else
            static_cast<void>(!read(descriptor, message.bytes.data(), message.bytes.size()));
    }
    change(m_semaphores, 1);
}
