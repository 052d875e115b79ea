#ifndef TESTS_SUPPORT_SYSTEMCALLS_H
#define TESTS_SUPPORT_SYSTEMCALLS_H

#include <cstddef>
#include <sys/types.h>

struct sembuf;

namespace testsupport {

/**
 * The C library's door. A test program that links systemcalls.cpp defines open, ioctl, read, write, close, usleep and
 * semop itself, in every spelling that fortified, large-file and 64-bit-time builds use, so the shared library under
 * test calls them here. They go to the handler that is installed; a call that is not the handler's goes on to the
 * C library.
 *
 * A fake overrides what it is about. By default it answers for nothing; a pause or a lock that it answers for takes no
 * time and succeeds, every other call fails with ENOSYS.
 */
class SystemCallHandler
{
public:
    virtual ~SystemCallHandler() = default;

    /// True if the handler answers for that path, descriptor or caller; the call then goes to the function below it.
    virtual bool answersFor(const char* path);
    virtual bool answersFor(int descriptor);
    virtual bool answersForPausesAndLocks();

    // As the system calls of that name: results, -1 and errno.
    virtual int open(const char* path, int flags);
    virtual int ioctl(int descriptor, unsigned long request, unsigned long argument);
    virtual ssize_t read(int descriptor, void* data, std::size_t count);
    virtual ssize_t write(int descriptor, const void* data, std::size_t count);
    virtual int close(int descriptor);
    virtual int usleep(unsigned microseconds);
    /// One operation of a semop call: negative takes tokens, positive gives them back.
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
