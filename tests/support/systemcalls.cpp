#include "tests/support/systemcalls.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <sys/sem.h>

#include "tests/support/interposition.h"

namespace testsupport {

namespace {

std::atomic<SystemCallHandler*> g_handler{nullptr};

SystemCallHandler* handlerOf(const char* path)
{
    SystemCallHandler* const handler = g_handler;
    return handler != nullptr && handler->answersFor(path) ? handler : nullptr;
}

SystemCallHandler* handlerOf(int descriptor)
{
    SystemCallHandler* const handler = g_handler;
    return handler != nullptr && handler->answersFor(descriptor) ? handler : nullptr;
}

SystemCallHandler* handlerOfPausesAndLocks()
{
    SystemCallHandler* const handler = g_handler;
    return handler != nullptr && handler->answersForPausesAndLocks() ? handler : nullptr;
}

using OpenFunction = int(const char*, int, ...);
using IoctlFunction = int(int, unsigned long, ...);
using ReadFunction = ssize_t(int, void*, std::size_t);
using WriteFunction = ssize_t(int, const void*, std::size_t);
using CloseFunction = int(int);
using UsleepFunction = int(unsigned);
using SemopFunction = int(int, sembuf*, std::size_t);

int openAs(const char* symbol, const char* path, int flags, unsigned mode)
{
    if (SystemCallHandler* const handler = handlerOf(path))
        return handler->open(path, flags);
    return nextDefinition<OpenFunction>(symbol)(path, flags, mode);
}

int ioctlAs(const char* symbol, int descriptor, unsigned long request, unsigned long argument)
{
    if (SystemCallHandler* const handler = handlerOf(descriptor))
        return handler->ioctl(descriptor, request, argument);
    return nextDefinition<IoctlFunction>(symbol)(descriptor, request, argument);
}

ssize_t readDescriptor(int descriptor, void* data, std::size_t count)
{
    if (SystemCallHandler* const handler = handlerOf(descriptor))
        return handler->read(descriptor, data, count);
    return realcalls::read(descriptor, data, count);
}

int failAsUnanswered()
{
    errno = ENOSYS;
    return -1;
}

/// The optional last argument of open and ioctl, which callers give or not.
template<typename Argument>
Argument optionalArgument(va_list arguments)
{
    return va_arg(arguments, Argument);
}

} // namespace

bool SystemCallHandler::answersFor(const char* /*path*/)
{
    return false;
}

bool SystemCallHandler::answersFor(int /*descriptor*/)
{
    return false;
}

bool SystemCallHandler::answersForPausesAndLocks()
{
    return false;
}

int SystemCallHandler::open(const char* /*path*/, int /*flags*/)
{
    return failAsUnanswered();
}

int SystemCallHandler::ioctl(int /*descriptor*/, unsigned long /*request*/, unsigned long /*argument*/)
{
    return failAsUnanswered();
}

ssize_t SystemCallHandler::read(int /*descriptor*/, void* /*data*/, std::size_t /*count*/)
{
    return failAsUnanswered();
}

ssize_t SystemCallHandler::write(int /*descriptor*/, const void* /*data*/, std::size_t /*count*/)
{
    return failAsUnanswered();
}

int SystemCallHandler::close(int /*descriptor*/)
{
    return failAsUnanswered();
}

int SystemCallHandler::usleep(unsigned /*microseconds*/)
{
    return 0;
}

int SystemCallHandler::changeSemaphore(int /*delta*/)
{
    return 0;
}

void SystemCallHandler::install(SystemCallHandler* handler)
{
    g_handler = handler;
}

namespace realcalls {

int open(const char* path, int flags)
{
    return nextDefinition<OpenFunction>("open")(path, flags, 0U);
}

ssize_t read(int descriptor, void* data, std::size_t count)
{
    static auto* const function = nextDefinition<ReadFunction>("read");
    return function(descriptor, data, count);
}

ssize_t write(int descriptor, const void* data, std::size_t count)
{
    static auto* const function = nextDefinition<WriteFunction>("write");
    return function(descriptor, data, count);
}

int close(int descriptor)
{
    static auto* const function = nextDefinition<CloseFunction>("close");
    return function(descriptor);
}

int semop(int semaphores, sembuf* operations, std::size_t count)
{
    static auto* const function = nextDefinition<SemopFunction>("semop");
    return function(semaphores, operations, count);
}

} // namespace realcalls

extern "C" {

int spelledOpen(const char* path, int flags, ...) SPELLING("open");
int spelledOpen64(const char* path, int flags, ...) SPELLING("open64");
int spelledOpenChecked(const char* path, int flags) SPELLING("__open_2");
int spelledOpen64Checked(const char* path, int flags) SPELLING("__open64_2");
int spelledIoctl(int descriptor, unsigned long request, ...) SPELLING("ioctl");
int spelledIoctlTime64(int descriptor, unsigned long request, ...) SPELLING("__ioctl_time64");
ssize_t spelledRead(int descriptor, void* data, std::size_t count) SPELLING("read");
ssize_t spelledReadChecked(int descriptor, void* data, std::size_t count, std::size_t room) SPELLING("__read_chk");
ssize_t spelledWrite(int descriptor, const void* data, std::size_t count) SPELLING("write");
int spelledClose(int descriptor) SPELLING("close");
int spelledUsleep(unsigned microseconds) SPELLING("usleep");
int spelledSemop(int semaphores, sembuf* operations, std::size_t count) SPELLING("semop");

int spelledOpen(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = optionalArgument<unsigned>(arguments);
    va_end(arguments);
    return openAs("open", path, flags, mode);
}

int spelledOpen64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = optionalArgument<unsigned>(arguments);
    va_end(arguments);
    return openAs("open64", path, flags, mode);
}

int spelledOpenChecked(const char* path, int flags)
{
    return openAs("__open_2", path, flags, 0);
}

int spelledOpen64Checked(const char* path, int flags)
{
    return openAs("__open64_2", path, flags, 0);
}

int spelledIoctl(int descriptor, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    const auto argument = optionalArgument<unsigned long>(arguments);
    va_end(arguments);
    return ioctlAs("ioctl", descriptor, request, argument);
}

int spelledIoctlTime64(int descriptor, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    const auto argument = optionalArgument<unsigned long>(arguments);
    va_end(arguments);
    return ioctlAs("__ioctl_time64", descriptor, request, argument);
}

ssize_t spelledRead(int descriptor, void* data, std::size_t count)
{
    return readDescriptor(descriptor, data, count);
}

ssize_t spelledReadChecked(int descriptor, void* data, std::size_t count, std::size_t /*room*/)
{
    return readDescriptor(descriptor, data, count);
}

ssize_t spelledWrite(int descriptor, const void* data, std::size_t count)
{
    if (SystemCallHandler* const handler = handlerOf(descriptor))
        return handler->write(descriptor, data, count);
    return realcalls::write(descriptor, data, count);
}

int spelledClose(int descriptor)
{
    if (SystemCallHandler* const handler = handlerOf(descriptor))
        return handler->close(descriptor);
    return realcalls::close(descriptor);
}

int spelledUsleep(unsigned microseconds)
{
    if (SystemCallHandler* const handler = handlerOfPausesAndLocks())
        return handler->usleep(microseconds);
    return nextDefinition<UsleepFunction>("usleep")(microseconds);
}

int spelledSemop(int semaphores, sembuf* operations, std::size_t count)
{
    if (SystemCallHandler* const handler = handlerOfPausesAndLocks())
        return handler->changeSemaphore(operations[0].sem_op);
    return realcalls::semop(semaphores, operations, count);
}

} // extern "C"

} // namespace testsupport
