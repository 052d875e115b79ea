#include "tool/doctor/patientbus.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include <unistd.h>

#include "common/patience.h"
#include "tool/chip/advice.h"

namespace VorelKestrel::Tool {

Access PatientBus::read(std::uint8_t reg, std::size_t length)
{
    Access access;
    access.registerTaken = send({reg});
    if (access.registerTaken) {
        access.data.resize(length);
        receive(access);
        access.data.resize(access.received > 0 ? static_cast<std::size_t>(access.received) : 0);
    }
    access.error = errno;
    return access;
}

Access PatientBus::write(std::uint8_t reg, const Bytes& data)
{
    Bytes message(1 + data.size(), reg);
    std::copy(data.begin(), data.end(), message.begin() + 1);
    Access access;
    access.registerTaken = send(message);
    access.error = errno;
    return access;
}

void PatientBus::noteRetry(int error)
{
    ++m_effort.retries;
    if (error != 0 && !isNoAnswer(Step::SetRegister, error))
        m_effort.error = error;
}

bool PatientBus::send(const Bytes& message)
{
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (attempt > 0) {
            noteRetry(errno);
            std::this_thread::sleep_for(kRetryPause);
        }
        ++m_effort.messages;
        errno = 0; // a transfer that moves nothing leaves it alone
        if (::write(m_node.get(), message.data(), message.size()) == static_cast<ssize_t>(message.size()))
            return true;
    }
    return false;
}

void PatientBus::receive(Access& access)
{
    for (int attempt = 0; attempt < kAttempts && access.received == -1; ++attempt) {
        if (attempt > 0)
            noteRetry(errno);
        ++m_effort.messages;
        const auto begin = std::chrono::steady_clock::now();
        errno = 0;
        access.received = ::read(m_node.get(), access.data.data(), access.data.size());
        const int error = errno;
        access.time = std::chrono::steady_clock::now() - begin;
        errno = error;
    }
}

} // namespace VorelKestrel::Tool
