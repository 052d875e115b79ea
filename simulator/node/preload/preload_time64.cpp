// For 32-bit programs with 64-bit times: the C library has other names for ioctl and stat there, which umockdev does
// not know. Compiled with 64-bit times, so that struct stat is the same as in the program.

#include <cstdarg>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "simulator/node/preload/nextdefinition.h"

namespace {

using Ioctl = int (*)(int, unsigned long, ...);
using Statx = int (*)(int, const char*, int, unsigned, struct statx*);

Ioctl g_ioctl = nullptr; // umockdev's
Statx g_statx = nullptr;

timespec timeOf(const statx_timestamp& stamp)
{
    timespec time{};
    time.tv_sec = stamp.tv_sec;
    time.tv_nsec = static_cast<long>(stamp.tv_nsec);
    return time;
}

struct stat statusOf(const struct statx& file)
{
    struct stat status
    {};
    status.st_dev = makedev(file.stx_dev_major, file.stx_dev_minor);
    status.st_ino = file.stx_ino;
    status.st_mode = file.stx_mode;
    status.st_nlink = file.stx_nlink;
    status.st_uid = file.stx_uid;
    status.st_gid = file.stx_gid;
    status.st_rdev = makedev(file.stx_rdev_major, file.stx_rdev_minor);
    status.st_size = static_cast<off_t>(file.stx_size);
    status.st_blksize = static_cast<blksize_t>(file.stx_blksize);
    status.st_blocks = static_cast<blkcnt_t>(file.stx_blocks);
    status.st_atim = timeOf(file.stx_atime);
    status.st_mtim = timeOf(file.stx_mtime);
    status.st_ctim = timeOf(file.stx_ctime);
    return status;
}

/// Uses statx, which is the same on every machine.
int statAt(int folder, const char* path, struct stat* status, int flags)
{
    struct statx file
    {};
    const int result = nextOf("statx", g_statx)(folder, path, flags, STATX_BASIC_STATS, &file);
    if (result == 0)
        *status = statusOf(file);
    return result;
}

} // namespace

extern "C" {

int ioctlTime64(int descriptor, unsigned long request, ...) __asm__("__ioctl_time64");
int statTime64(const char* path, struct stat* status) __asm__("__stat64_time64");
int lstatTime64(const char* path, struct stat* status) __asm__("__lstat64_time64");
int fstatatTime64(int folder, const char* path, struct stat* status, int flags) __asm__("__fstatat64_time64");

int ioctlTime64(int descriptor, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return nextOf("ioctl", g_ioctl)(descriptor, request, argument); // no request of a bus carries times
}

int statTime64(const char* path, struct stat* status)
{
    return statAt(AT_FDCWD, path, status, 0);
}

int lstatTime64(const char* path, struct stat* status)
{
    return statAt(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

int fstatatTime64(int folder, const char* path, struct stat* status, int flags)
{
    return statAt(folder, path, status, flags);
}

} // extern "C"
