// Preloaded into a program, this gives it /dev/i2c-9: whatever is written gets through, reads count up from 0x40. A
// write that begins with 0xee fails with the errno that is its second byte, and one that begins with 0xcc is cut to a
// byte.

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <unistd.h>

#include "tests/support/interposition.h"

using namespace testsupport;

namespace {

constexpr char kNode[] = "/dev/i2c-9";
constexpr unsigned char kFails = 0xee;
constexpr unsigned char kIsCut = 0xcc;
constexpr unsigned kI2cMajor = 89;

bool isNull(const struct stat64& status)
{
    return S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
}

bool isNode(int descriptor)
{
    struct stat64 status = {};
    return nextDefinition<int(int, struct stat64*)>("fstat64")(descriptor, &status) == 0 && isNull(status);
}

int openNode(const char* path, int flags, unsigned mode)
{
    const char* real = std::strcmp(path, kNode) == 0 ? "/dev/null" : path;
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, real, flags, mode));
}

ssize_t readNode(int descriptor, void* data, std::size_t count)
{
    if (!isNode(descriptor))
        return syscall(SYS_read, descriptor, data, count);
    for (std::size_t i = 0; i < count; ++i)
        static_cast<unsigned char*>(data)[i] = static_cast<unsigned char>(0x40 + i);
    return static_cast<ssize_t>(count);
}

ssize_t writeNode(int descriptor, const void* data, std::size_t count)
{
    if (!isNode(descriptor))
        return syscall(SYS_write, descriptor, data, count);
    const auto* bytes = static_cast<const unsigned char*>(data);
    if (count > 1 && bytes[0] == kFails) {
        errno = bytes[1];
        return -1;
    }
    return count > 0 && bytes[0] == kIsCut ? 1 : static_cast<ssize_t>(count);
}

template<typename Call>
ssize_t eachPiece(const iovec* pieces, int count, Call call)
{
    ssize_t total = 0;
    for (int i = 0; i < count; ++i)
        total += call(pieces[i].iov_base, pieces[i].iov_len);
    return total;
}

int transfer(const i2c_rdwr_ioctl_data& request)
{
    for (unsigned i = 0; i < request.nmsgs; ++i) {
        const i2c_msg& message = request.msgs[i];
        if ((message.flags & I2C_M_RD) == 0 && message.len > 1 && message.buf[0] == kFails) {
            errno = message.buf[1];
            return -1;
        }
        for (unsigned j = 0; (message.flags & I2C_M_RD) != 0 && j < message.len; ++j)
            message.buf[j] = static_cast<unsigned char>(0x40 + j);
    }
    return static_cast<int>(request.nmsgs);
}

int smbus(const i2c_smbus_ioctl_data& request)
{
    if (request.command == kFails) {
        errno = ENXIO;
        return -1;
    }
    if (request.read_write == I2C_SMBUS_READ && request.data != nullptr) {
        request.data->block[0] = 2;
        request.data->block[1] = 0x41;
        request.data->block[2] = 0x42;
    }
    return 0;
}

int ioctlNode(int descriptor, unsigned long request, void* argument)
{
    if (!isNode(descriptor))
        return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
    if (request == I2C_RDWR)
        return transfer(*static_cast<const i2c_rdwr_ioctl_data*>(argument));
    if (request == I2C_SMBUS)
        return smbus(*static_cast<const i2c_smbus_ioctl_data*>(argument));
    return 0;
}

/// The result of fstat(), for the structures of both names.
template<typename Status>
int statusOf(const char* symbol, int descriptor, Status* status)
{
    const int result = nextDefinition<int(int, Status*)>(symbol)(descriptor, status);
    if (result == 0 && S_ISCHR(status->st_mode) && status->st_rdev == makedev(1, 3))
        status->st_rdev = makedev(kI2cMajor, 9);
    return result;
}

} // namespace

extern "C" {

int fakeOpen(const char* path, int flags, unsigned mode) SPELLING("open");
int fakeOpen64(const char* path, int flags, unsigned mode) SPELLING("open64");
int fakeOpenChecked(const char* path, int flags) SPELLING("__open_2");
int fakeOpen64Checked(const char* path, int flags) SPELLING("__open64_2");
int fakeOpenAt(int folder, const char* path, int flags, unsigned mode) SPELLING("openat");
int fakeOpenAt64(int folder, const char* path, int flags, unsigned mode) SPELLING("openat64");
int fakeOpenAtChecked(int folder, const char* path, int flags) SPELLING("__openat_2");
int fakeOpenAt64Checked(int folder, const char* path, int flags) SPELLING("__openat64_2");
int fakeStatus(int descriptor, struct stat* status) SPELLING("fstat");
int fakeStatus64(int descriptor, struct stat64* status) SPELLING("fstat64");
int fakeStatusTime64(int descriptor, struct stat64* status) SPELLING("__fstat64_time64");
int fakeIoctl(int descriptor, unsigned long request, void* argument) SPELLING("ioctl");
int fakeIoctlTime64(int descriptor, unsigned long request, void* argument) SPELLING("__ioctl_time64");
ssize_t fakeRead(int descriptor, void* data, std::size_t count) SPELLING("read");
ssize_t fakeReadChecked(int descriptor, void* data, std::size_t count, std::size_t room) SPELLING("__read_chk");
ssize_t fakeWrite(int descriptor, const void* data, std::size_t count) SPELLING("write");
ssize_t fakeReadVector(int descriptor, const iovec* pieces, int count) SPELLING("readv");
ssize_t fakeWriteVector(int descriptor, const iovec* pieces, int count) SPELLING("writev");

int fakeOpen(const char* path, int flags, unsigned mode)
{
    return openNode(path, flags, mode);
}
int fakeOpen64(const char* path, int flags, unsigned mode)
{
    return openNode(path, flags, mode);
}
int fakeOpenChecked(const char* path, int flags)
{
    return openNode(path, flags, 0);
}
int fakeOpen64Checked(const char* path, int flags)
{
    return openNode(path, flags, 0);
}
int fakeOpenAt(int /*folder*/, const char* path, int flags, unsigned mode)
{
    return openNode(path, flags, mode);
}
int fakeOpenAt64(int /*folder*/, const char* path, int flags, unsigned mode)
{
    return openNode(path, flags, mode);
}
int fakeOpenAtChecked(int /*folder*/, const char* path, int flags)
{
    return openNode(path, flags, 0);
}
int fakeOpenAt64Checked(int /*folder*/, const char* path, int flags)
{
    return openNode(path, flags, 0);
}
int fakeStatus(int descriptor, struct stat* status)
{
    return statusOf("fstat", descriptor, status);
}
int fakeStatus64(int descriptor, struct stat64* status)
{
    return statusOf("fstat64", descriptor, status);
}
int fakeStatusTime64(int descriptor, struct stat64* status)
{
    return statusOf("__fstat64_time64", descriptor, status);
}
int fakeIoctl(int descriptor, unsigned long request, void* argument)
{
    return ioctlNode(descriptor, request, argument);
}
int fakeIoctlTime64(int descriptor, unsigned long request, void* argument)
{
    return ioctlNode(descriptor, request, argument);
}
ssize_t fakeRead(int descriptor, void* data, std::size_t count)
{
    return readNode(descriptor, data, count);
}
// As libraries may do it: by the one name out of the other.
ssize_t fakeReadChecked(int descriptor, void* data, std::size_t count, std::size_t /*room*/)
{
    return read(descriptor, data, count);
}
ssize_t fakeWrite(int descriptor, const void* data, std::size_t count)
{
    return writeNode(descriptor, data, count);
}
ssize_t fakeReadVector(int descriptor, const iovec* pieces, int count)
{
    return eachPiece(pieces, count, [=](void* data, std::size_t length) { return readNode(descriptor, data, length); });
}
ssize_t fakeWriteVector(int descriptor, const iovec* pieces, int count)
{
    return eachPiece(pieces, count,
                     [=](void* data, std::size_t length) { return writeNode(descriptor, data, length); });
}

} // extern "C"
