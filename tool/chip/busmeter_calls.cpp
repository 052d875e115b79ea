// The library calls read(), write() and ioctl(), and finds these definitions in the program. They pass each call on,
// and tell the meter about those on the node. The C library has several names for some calls: for times beyond 2038,
// and for buffers of known size.

#include <cerrno>
#include <cstdarg>
#include <cstddef>

#include <linux/i2c-dev.h>
#include <sys/types.h>

#include "common/next.h"
#include "tool/chip/busmeter.h"

using namespace VorelKestrel::Tool;
using VorelKestrel::Next;

namespace {

using IoctlFunction = int(int, unsigned long, ...);
using ReadFunction = ssize_t(int, void*, std::size_t);
using ReadCheckedFunction = ssize_t(int, void*, std::size_t, std::size_t);
using WriteFunction = ssize_t(int, const void*, std::size_t);

thread_local int t_node = -1;         // where this thread last selected an address
thread_local bool t_isInside = false; // one call may make another; they are one message

/// The meter that counts a call on this descriptor; null: none.
BusMeter* meterOf(int descriptor)
{
    return descriptor == t_node && !t_isInside ? BusMeter::current() : nullptr;
}

template<typename Call>
ssize_t metered(BusMeter& meter, bool isRead, const void* data, std::size_t length, Call call)
{
    t_isInside = true;
    const auto begin = BusClock::now();
    const ssize_t result = call();
    const int error = errno;
    meter.count({isRead, length, result, error, static_cast<const std::uint8_t*>(data), begin, BusClock::now()});
    t_isInside = false;
    errno = error;
    return result;
}

int selecting(Next<IoctlFunction>& next, int descriptor, unsigned long request, void* argument)
{
    const int result = next(descriptor, request, argument);
    if (request == I2C_SLAVE && result == 0)
        t_node = descriptor;
    return result;
}

} // namespace

extern "C" {

int spelledIoctl(int descriptor, unsigned long request, ...) SPELLING("ioctl");
int spelledIoctlTime64(int descriptor, unsigned long request, ...) SPELLING("__ioctl_time64");
ssize_t spelledRead(int descriptor, void* data, std::size_t length) SPELLING("read");
ssize_t spelledReadChecked(int descriptor, void* data, std::size_t length, std::size_t room) SPELLING("__read_chk");
ssize_t spelledWrite(int descriptor, const void* data, std::size_t length) SPELLING("write");

int spelledIoctl(int descriptor, unsigned long request, ...)
{
    static Next<IoctlFunction> next("ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return selecting(next, descriptor, request, argument);
}

int spelledIoctlTime64(int descriptor, unsigned long request, ...)
{
    static Next<IoctlFunction> next("__ioctl_time64");
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return selecting(next, descriptor, request, argument);
}

ssize_t spelledRead(int descriptor, void* data, std::size_t length)
{
    static Next<ReadFunction> next("read");
    BusMeter* meter = meterOf(descriptor);
    const auto call = [&] { return next(descriptor, data, length); };
    return meter == nullptr ? call() : metered(*meter, true, data, length, call);
}

ssize_t spelledReadChecked(int descriptor, void* data, std::size_t length, std::size_t room)
{
    static Next<ReadCheckedFunction> next("__read_chk");
    BusMeter* meter = meterOf(descriptor);
    const auto call = [&] { return next(descriptor, data, length, room); };
    return meter == nullptr ? call() : metered(*meter, true, data, length, call);
}

ssize_t spelledWrite(int descriptor, const void* data, std::size_t length)
{
    static Next<WriteFunction> next("write");
    BusMeter* meter = meterOf(descriptor);
    const auto call = [&] { return next(descriptor, data, length); };
    return meter == nullptr ? call() : metered(*meter, false, data, length, call);
}

} // extern "C"
