#ifndef TESTS_SUPPORT_SYSTEMCALLS_H
#define TESTS_SUPPORT_SYSTEMCALLS_H

#include <cstddef>
#include <sys/types.h>

struct sembuf;

namespace testsupport {

/**
 * The boundary to the C library. A test program that links systemcalls.cpp defines open, ioctl, read, write, close,
 * usleep and semop itself, under all names of fortified, large-file and 64-bit-time builds, so that the library under
 * test calls these. They call the installed handler, or the C library if the call is not for the handler.
 *
 * A fake overrides what it needs. By default it answers for nothing. Pauses and locks that it answers for succeed at
 * once; every other call fails with ENOSYS.
 */
class SystemCallHandler
{
public:
    virtual ~SystemCallHandler() = default;

    /// True if the handler answers for this path, descriptor or caller; the call then goes to the function below.
    virtual bool answersFor(const char* path);
    virtual bool answersFor(int descriptor);
    virtual bool answersForPausesAndLocks();

    // Like the system calls with these names: results, -1 and errno.
    virtual int open(const char* path, int flags);
    virtual int ioctl(int descriptor, unsigned long request, unsigned long argument);
    virtual ssize_t read(int descriptor, void* data, std::size_t count);
    virtual ssize_t write(int descriptor, const void* data, std::size_t count);
    virtual int close(int descriptor);
    virtual int usleep(unsigned microseconds);
    /// One operation of a semop call: negative takes tokens, positive returns them.
    virtual int changeSemaphore(int delta);

    /// Installs @p handler for the whole process, or none if it is null.
    static void install(SystemCallHandler* handler);
};

/// The C library's own functions, for handlers that pass a call on.
namespace realcalls {

int open(const char* path, int flags);
ssize_t read(int descriptor, void* data, std::size_t count);
ssize_t write(int descriptor, const void* data, std::size_t count);
int close(int descriptor);
int semop(int semaphores, sembuf* operations, std::size_t count);

} // namespace realcalls

} // namespace testsupport

#endif
