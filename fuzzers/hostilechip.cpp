#include "fuzzers/hostilechip.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kDescriptor = 1 << 20; // far above what a process really opens

constexpr unsigned char kPart = 0x40;
constexpr unsigned char kNothing = 0x80;
constexpr unsigned char kRefused = 0xc0;
constexpr unsigned char kRefusedAtEveryAttempt = 0xf0;
constexpr unsigned char kRefusedForGood = 0xff;

constexpr int kRetries = 99; // of the library, after the first attempt

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

HostileChip::HostileChip()
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
}

bool HostileChip::answersFor(const char* path)
{
    return std::strcmp(path, kPath) == 0;
}

bool HostileChip::answersFor(int descriptor)
{
    return descriptor == kDescriptor;
}

int HostileChip::open(const char* /*path*/, int /*flags*/)
{
    return kDescriptor;
}

int HostileChip::ioctl(int /*descriptor*/, unsigned long /*request*/, unsigned long /*argument*/)
{
    return 0;
}

ssize_t HostileChip::resultOf(std::size_t count)
{
    if (m_refusesAll || m_refusals > 0) {
        m_refusals = std::max(0, m_refusals - 1);
        return failWith(EREMOTEIO);
    }
    const unsigned char fate = m_input->byte();
    m_refusesAll = fate == kRefusedForGood;
    m_refusals = fate >= kRefusedAtEveryAttempt ? kRetries : 0;
    if (fate >= kRefused)
        return failWith(EREMOTEIO);
    if (fate >= kNothing)
        return 0;
    return static_cast<ssize_t>(fate >= kPart ? m_input->word() % (count + 1) : count);
}

ssize_t HostileChip::read(int /*descriptor*/, void* data, std::size_t count)
{
    if (m_taken != 1)
        stop("a read without the lock");
    if (isTooLarge(count))
        return failWith(EINVAL);
    const ssize_t result = resultOf(count);
    if (result > 0)
        m_input->fill(static_cast<unsigned char*>(data), static_cast<std::size_t>(result));
    // A bus controller may have written the rest as well before it saw the message end early.
    const std::size_t told = result > 0 ? static_cast<std::size_t>(result) : 0;
    std::memset(static_cast<unsigned char*>(data) + told, 0xee, count - told);
    return result;
}

ssize_t HostileChip::write(int /*descriptor*/, const void* data, std::size_t count)
{
    if (m_taken != 1)
        stop("a write without the lock");
    if (isTooLarge(count))
        return failWith(EINVAL);
    const auto* const message = static_cast<const unsigned char*>(data);
    m_message.assign(message, message + count); // AddressSanitizer looks at every byte
    return resultOf(count);
}

int HostileChip::close(int /*descriptor*/)
{
    return 0;
}

int HostileChip::usleep(unsigned /*microseconds*/)
{
    return 0;
}

int HostileChip::changeSemaphore(int delta)
{
    m_taken -= delta;
    if (m_taken < 0 || m_taken > 1)
        stop(m_taken < 0 ? "the lock was given back twice" : "the lock was taken twice");
    return 0;
}
