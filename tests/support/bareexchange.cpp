#include "tests/support/bareexchange.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace testsupport {

namespace {

constexpr std::size_t kRoom = 4096; // for the longest answer

/// With SEM_UNDO, like the library's lock, so that the kernel does the same work.
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

void BareExchange::run(int descriptor) const
{
    std::array<InstantDevice::U8, kRoom> room; // NOLINT(cppcoreguidelines-pro-type-member-init): only read into
    change(m_semaphores, -1);
    for (const auto& message : m_messages) {
        if (message.isWrite)
            static_cast<void>(!write(descriptor, message.bytes.data(), message.bytes.size()));
        else
            static_cast<void>(!read(descriptor, room.data(), std::min(message.bytes.size(), kRoom)));
    }
    change(m_semaphores, 1);
}

void BareExchange::runWithBuffers(int descriptor) const
{
    std::array<InstantDevice::U8, kRoom> room; // NOLINT(cppcoreguidelines-pro-type-member-init): only read into
    change(m_semaphores, -1);
    for (const auto& message : m_messages) {
        const std::size_t length = message.bytes.size();
        const bool isAnswer = &message == &m_messages.back();
        if (message.isWrite && length > 1) {
            const std::unique_ptr<InstantDevice::U8[]> buffer(new InstantDevice::U8[length]);
            std::memcpy(buffer.get(), message.bytes.data(), length);
            static_cast<void>(!write(descriptor, buffer.get(), length));
        } else if (message.isWrite) {
            static_cast<void>(!write(descriptor, message.bytes.data(), length));
        } else if (isAnswer) {
            void* const answer = std::malloc(length);
            static_cast<void>(!read(descriptor, answer, length));
            std::free(answer);
        } else {
            static_cast<void>(!read(descriptor, room.data(), std::min(length, kRoom)));
        }
    }
    change(m_semaphores, 1);
}

} // namespace testsupport
