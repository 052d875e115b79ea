#include "fuzzers/hostilechip.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "common/patience.h"

namespace {

constexpr unsigned char kPart = 0x40;
constexpr unsigned char kNothing = 0x80;
constexpr unsigned char kRefused = 0xc0;
constexpr unsigned char kRefusedAtEveryAttempt = 0xf0;
constexpr unsigned char kRefusedForGood = 0xff;

constexpr int kRetries = VorelKestrel::kAttempts - 1;

/// The errors of a bus, its driver and the system.
constexpr int kErrors[] = {EREMOTEIO, ENXIO,  EIO,    ETIMEDOUT,  EAGAIN, EINTR,  EBUSY,  ENODEV,
                           EINVAL,    ENOMEM, EFAULT, EOPNOTSUPP, EPROTO, ENOENT, EACCES, ESHUTDOWN};

/// The kernel refuses such counts; negative lengths arrive as them.
bool isTooLarge(std::size_t count)
{
    return count > static_cast<std::size_t>(SSIZE_MAX);
}

int failWith(int error)
{
    errno = error;
    return -1;
}

[[noreturn]] void stop(const char* reason)
{
    std::fprintf(stderr, "hostile chip: %s\n", reason);
    std::abort();
}

} // namespace

HostileChip::HostileChip(int mostMessages) : m_mostMessages(mostMessages)
{
    install(this);
}

HostileChip::~HostileChip()
{
    install(nullptr);
}

void HostileChip::operationIsOver()
{
    if (m_taken != 0)
        stop("the lock is still taken when the operation is over");
    m_refusesAll = false;
    m_refusals = 0;
    m_refusesTransactions = false;
    forgetOperation();
}

void HostileChip::forgetOperation()
{
    m_hasFailed = false;
    m_attempts = 0;
    m_messages = 0;
    m_register = -1;
    m_lastRead.clear();
    m_sumOfReads = 0;
}

/// A message is the same call with the same bytes as the one before it, if that failed; otherwise a new one.
void HostileChip::note(bool isRead, const void* data, std::size_t count)
{
    const auto* const bytes = static_cast<const unsigned char*>(data);
    const std::size_t length = isTooLarge(count) ? 0 : count;
    const std::vector<unsigned char> message =
        isRead ? std::vector<unsigned char>(length) : std::vector<unsigned char>(bytes, bytes + length);
    const bool isRetry = m_hasFailed && m_wasRead == isRead && m_message == message;
    m_attempts = isRetry ? m_attempts + 1 : 1;
    m_messages += isRetry ? 0 : 1;
    m_message = message;
    m_wasRead = isRead;
    if (m_attempts > VorelKestrel::kAttempts)
        stop("a message is tried too often");
    if (m_messages > m_mostMessages)
        stop("the operation does not end");
}

ssize_t HostileChip::concluded(ssize_t result, std::size_t count)
{
    m_hasFailed = m_wasRead ? result == -1 : result != static_cast<ssize_t>(count);
    if (m_wasRead && (!m_hasFailed || m_attempts == VorelKestrel::kAttempts))
        m_sumOfReads += static_cast<int>(result);
    return result;
}

int HostileChip::resultOfOpening()
{
    return resultOf(0) < 0 ? -1 : 0;
}

int HostileChip::open(const char* /*path*/, int /*flags*/)
{
    m_isOpen = resultOfOpening() == 0;
    return m_isOpen ? kDescriptor : -1;
}

int HostileChip::ioctl(int /*descriptor*/, unsigned long /*request*/, unsigned long /*argument*/)
{
    return resultOfOpening();
}

ssize_t HostileChip::resultOf(std::size_t count)
{
    if (m_refusesAll || m_refusals > 0) {
        m_refusals = std::max(0, m_refusals - 1);
        return failWith(m_error);
    }
    const unsigned char fate = m_input->byte();
    m_refusesAll = fate == kRefusedForGood;
    m_refusals = fate >= kRefusedAtEveryAttempt ? kRetries : 0;
    m_error = kErrors[fate % std::size(kErrors)];
    if (fate >= kRefused)
        return failWith(m_error);
    if (fate >= kNothing)
        return 0;
    return static_cast<ssize_t>(fate >= kPart ? m_input->word() % (count + 1) : count);
}

ssize_t HostileChip::read(int /*descriptor*/, void* data, std::size_t count)
{
    if (m_taken != 1)
        stop("a read without the lock");
    note(true, nullptr, count);
    if (isTooLarge(count))
        return concluded(failWith(EINVAL), count);
    const ssize_t result = resultOf(count);
    if (result > 0)
        m_input->fill(static_cast<unsigned char*>(data), static_cast<std::size_t>(result));
    // A bus controller may have written the rest as well before it saw the message end early.
    const std::size_t told = result > 0 ? static_cast<std::size_t>(result) : 0;
    std::memset(static_cast<unsigned char*>(data) + told, 0xee, count - told);
    if (result >= 0)
        m_lastRead.assign(static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + told);
    return concluded(result, count);
}

ssize_t HostileChip::write(int /*descriptor*/, const void* data, std::size_t count)
{
    if (m_taken != 1)
        stop("a write without the lock");
    note(false, data, count); // AddressSanitizer looks at every byte
    if (count > 0 && !isTooLarge(count))
        m_register = m_message[0];
    return concluded(isTooLarge(count) ? failWith(EINVAL) : resultOf(count), count);
}

int HostileChip::close(int /*descriptor*/)
{
    m_isOpen = false;
    return 0;
}

int HostileChip::changeSemaphore(int delta)
{
    m_taken -= delta;
    if (m_taken < 0 || m_taken > 1)
        stop(m_taken < 0 ? "the lock was given back twice" : "the lock was taken twice");
    return 0;
}
