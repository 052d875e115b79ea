// Preloaded into the programs of a capture: passes every call on, and records those on i2c-dev nodes. The C library has
// several names for some calls: for files beyond 2 GiB, for times beyond 2038, and for buffers of known size.

#include <cerrno>
#include <cstdarg>
#include <cstddef>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

#include "capture/preload/messages.h"
#include "capture/preload/nodes.h"
#include "capture/preload/recorder.h"
#include "common/next.h"

using namespace VorelKestrel::Capture;
using VorelKestrel::Next;

namespace {

using OpenFunction = int(const char*, int, ...);
using OpenAtFunction = int(int, const char*, int, ...);
using IoctlFunction = int(int, unsigned long, ...);
using FcntlFunction = int(int, int, ...);
using ReadFunction = ssize_t(int, void*, std::size_t);
using ReadCheckedFunction = ssize_t(int, void*, std::size_t, std::size_t);
using WriteFunction = ssize_t(int, const void*, std::size_t);
using VectorFunction = ssize_t(int, const iovec*, int);
using ReceiveFunction = ssize_t(int, msghdr*, int);

__attribute__((constructor)) void start()
{
    startRecorder();
    if (isRecording())
        noticeInherited();
}

int opened(int descriptor, const char* path)
{
    if (descriptor != -1 && isRecording()) {
        const int error = errno;
        noticeOpened(descriptor, path);
        if (findNode(descriptor) != nullptr)
            openCapture();
        errno = error;
    }
    return descriptor;
}

int duplicated(int original, int copy)
{
    if (copy != -1)
        noticeDuplicated(original, copy);
    return copy;
}

// A later library may turn one call into another, for example __read_chk() into read(): they are one message.
__thread bool g_isInside __attribute__((tls_model("initial-exec"))) = false;

/// The node to be recorded; null: the call is only passed on.
OpenNode* recordedNode(int descriptor)
{
    return isRecording() && !g_isInside ? findNode(descriptor) : nullptr;
}

template<typename Call>
auto timed(Call call, EndedCall& ended)
{
    g_isInside = true;
    ended.begin = now();
    const auto result = call();
    const int error = errno;
    ended.end = now();
    g_isInside = false;
    ended.result = result;
    errno = error;
    return result;
}

template<typename Call>
ssize_t recordedRead(int descriptor, void* data, std::size_t count, Call call)
{
    OpenNode* node = recordedNode(descriptor);
    if (node == nullptr)
        return call();
    EndedCall ended{};
    const ssize_t result = timed(call, ended);
    recordRead(*node, ended, data, count);
    return result;
}

ssize_t recordedVector(Next<VectorFunction>& next, bool isRead, int descriptor, const iovec* pieces, int count)
{
    OpenNode* node = recordedNode(descriptor);
    if (node == nullptr)
        return next(descriptor, pieces, count);
    EndedCall ended{};
    const ssize_t result = timed([&] { return next(descriptor, pieces, count); }, ended);
    recordVector(*node, ended, isRead, pieces, count);
    return result;
}

int recordedIoctl(Next<IoctlFunction>& next, int descriptor, unsigned long request, unsigned long argument)
{
    OpenNode* node = recordedNode(descriptor);
    if (node == nullptr)
        return next(descriptor, request, argument);
    EndedCall ended{};
    const int result = timed([&] { return next(descriptor, request, argument); }, ended);
    recordIoctl(*node, ended, request, argument);
    return result;
}

int recordedFcntl(Next<FcntlFunction>& next, int descriptor, int command, unsigned long argument)
{
    const int result = next(descriptor, command, argument);
    return command == F_DUPFD || command == F_DUPFD_CLOEXEC ? duplicated(descriptor, result) : result;
}

/// Descriptors received through a socket.
void noticeReceived(const msghdr& message)
{
    for (const cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(const_cast<msghdr*>(&message), const_cast<cmsghdr*>(header))) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
            continue;
        const auto* descriptors = reinterpret_cast<const int*>(CMSG_DATA(header));
        const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i)
            opened(descriptors[i], nullptr);
    }
}

ssize_t recordedReceive(Next<ReceiveFunction>& next, int socket, msghdr* message, int flags)
{
    const ssize_t result = next(socket, message, flags);
    if (result >= 0 && isRecording() && message->msg_controllen > 0)
        noticeReceived(*message);
    return result;
}

/// The optional last argument.
template<typename Argument>
Argument optionalArgument(va_list arguments)
{
    return va_arg(arguments, Argument);
}

} // namespace

extern "C" {

int spelledOpen(const char* path, int flags, ...) SPELLING("open");
int spelledOpen64(const char* path, int flags, ...) SPELLING("open64");
int spelledOpenChecked(const char* path, int flags) SPELLING("__open_2");
int spelledOpen64Checked(const char* path, int flags) SPELLING("__open64_2");
int spelledOpenAt(int folder, const char* path, int flags, ...) SPELLING("openat");
int spelledOpenAt64(int folder, const char* path, int flags, ...) SPELLING("openat64");
int spelledOpenAtChecked(int folder, const char* path, int flags) SPELLING("__openat_2");
int spelledOpenAt64Checked(int folder, const char* path, int flags) SPELLING("__openat64_2");
int spelledClose(int descriptor) SPELLING("close");
int spelledCloseRange(unsigned first, unsigned last, int flags) SPELLING("close_range");
void spelledCloseFrom(int first) SPELLING("closefrom");
int spelledDup(int descriptor) SPELLING("dup");
int spelledDup2(int descriptor, int copy) SPELLING("dup2");
int spelledDup3(int descriptor, int copy, int flags) SPELLING("dup3");
int spelledFcntl(int descriptor, int command, ...) SPELLING("fcntl");
int spelledFcntl64(int descriptor, int command, ...) SPELLING("fcntl64");
int spelledFcntlTime64(int descriptor, int command, ...) SPELLING("__fcntl_time64");
int spelledIoctl(int descriptor, unsigned long request, ...) SPELLING("ioctl");
int spelledIoctlTime64(int descriptor, unsigned long request, ...) SPELLING("__ioctl_time64");
ssize_t spelledRead(int descriptor, void* data, std::size_t count) SPELLING("read");
ssize_t spelledReadChecked(int descriptor, void* data, std::size_t count, std::size_t room) SPELLING("__read_chk");
ssize_t spelledWrite(int descriptor, const void* data, std::size_t count) SPELLING("write");
ssize_t spelledReadVector(int descriptor, const iovec* pieces, int count) SPELLING("readv");
ssize_t spelledWriteVector(int descriptor, const iovec* pieces, int count) SPELLING("writev");
ssize_t spelledReceive(int socket, msghdr* message, int flags) SPELLING("recvmsg");
ssize_t spelledReceiveTime64(int socket, msghdr* message, int flags) SPELLING("__recvmsg64");

int spelledOpen(const char* path, int flags, ...)
{
    static Next<OpenFunction> next("open");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = optionalArgument<unsigned>(arguments);
    va_end(arguments);
    return opened(next(path, flags, mode), path);
}

int spelledOpen64(const char* path, int flags, ...)
{
    static Next<OpenFunction> next("open64");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = optionalArgument<unsigned>(arguments);
    va_end(arguments);
    return opened(next(path, flags, mode), path);
}

int spelledOpenChecked(const char* path, int flags)
{
    static Next<int(const char*, int)> next("__open_2");
    return opened(next(path, flags), path);
}

int spelledOpen64Checked(const char* path, int flags)
{
    static Next<int(const char*, int)> next("__open64_2");
    return opened(next(path, flags), path);
}

int spelledOpenAt(int folder, const char* path, int flags, ...)
{
    static Next<OpenAtFunction> next("openat");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = optionalArgument<unsigned>(arguments);
    va_end(arguments);
    return opened(next(folder, path, flags, mode), path);
}

int spelledOpenAt64(int folder, const char* path, int flags, ...)
{
    static Next<OpenAtFunction> next("openat64");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = optionalArgument<unsigned>(arguments);
    va_end(arguments);
    return opened(next(folder, path, flags, mode), path);
}

int spelledOpenAtChecked(int folder, const char* path, int flags)
{
    static Next<int(int, const char*, int)> next("__openat_2");
    return opened(next(folder, path, flags), path);
}

int spelledOpenAt64Checked(int folder, const char* path, int flags)
{
    static Next<int(int, const char*, int)> next("__openat64_2");
    return opened(next(folder, path, flags), path);
}

int spelledClose(int descriptor)
{
    static Next<int(int)> next("close");
    if (isCapture(descriptor)) { // not a descriptor of the program
        errno = EBADF;
        return -1;
    }
    noticeClosed(descriptor); // before another thread can get the number
    return next(descriptor);
}

int spelledCloseRange(unsigned first, unsigned last, int flags)
{
    static Next<int(unsigned, unsigned, int)> next("close_range");
    const int result = next(first, last, flags);
    if (result == 0 && flags == 0)
        noticeClosed(first, last);
    return result;
}

void spelledCloseFrom(int first)
{
    static Next<void(int)> next("closefrom");
    next(first);
    noticeClosed(first < 0 ? 0U : static_cast<unsigned>(first), ~0U);
}

int spelledDup(int descriptor)
{
    static Next<int(int)> next("dup");
    return duplicated(descriptor, next(descriptor));
}

int spelledDup2(int descriptor, int copy)
{
    static Next<int(int, int)> next("dup2");
    makeWay(copy);
    return duplicated(descriptor, next(descriptor, copy));
}

int spelledDup3(int descriptor, int copy, int flags)
{
    static Next<int(int, int, int)> next("dup3");
    makeWay(copy);
    return duplicated(descriptor, next(descriptor, copy, flags));
}

int spelledFcntl(int descriptor, int command, ...)
{
    static Next<FcntlFunction> next("fcntl");
    va_list arguments;
    va_start(arguments, command);
    const auto argument = optionalArgument<unsigned long>(arguments);
    va_end(arguments);
    return recordedFcntl(next, descriptor, command, argument);
}

int spelledFcntl64(int descriptor, int command, ...)
{
    static Next<FcntlFunction> next("fcntl64");
    va_list arguments;
    va_start(arguments, command);
    const auto argument = optionalArgument<unsigned long>(arguments);
    va_end(arguments);
    return recordedFcntl(next, descriptor, command, argument);
}

int spelledFcntlTime64(int descriptor, int command, ...)
{
    static Next<FcntlFunction> next("__fcntl_time64");
    va_list arguments;
    va_start(arguments, command);
    const auto argument = optionalArgument<unsigned long>(arguments);
    va_end(arguments);
    return recordedFcntl(next, descriptor, command, argument);
}

int spelledIoctl(int descriptor, unsigned long request, ...)
{
    static Next<IoctlFunction> next("ioctl");
    va_list arguments;
    va_start(arguments, request);
    const auto argument = optionalArgument<unsigned long>(arguments);
    va_end(arguments);
    return recordedIoctl(next, descriptor, request, argument);
}

int spelledIoctlTime64(int descriptor, unsigned long request, ...)
{
    static Next<IoctlFunction> next("__ioctl_time64");
    va_list arguments;
    va_start(arguments, request);
    const auto argument = optionalArgument<unsigned long>(arguments);
    va_end(arguments);
    return recordedIoctl(next, descriptor, request, argument);
}

ssize_t spelledRead(int descriptor, void* data, std::size_t count)
{
    static Next<ReadFunction> next("read");
    return recordedRead(descriptor, data, count, [&] { return next(descriptor, data, count); });
}

ssize_t spelledReadChecked(int descriptor, void* data, std::size_t count, std::size_t room)
{
    static Next<ReadCheckedFunction> next("__read_chk");
    return recordedRead(descriptor, data, count, [&] { return next(descriptor, data, count, room); });
}

ssize_t spelledWrite(int descriptor, const void* data, std::size_t count)
{
    static Next<WriteFunction> next("write");
    OpenNode* node = recordedNode(descriptor);
    if (node == nullptr)
        return next(descriptor, data, count);
    EndedCall ended{};
    const ssize_t result = timed([&] { return next(descriptor, data, count); }, ended);
    recordWrite(*node, ended, data, count);
    return result;
}

ssize_t spelledReadVector(int descriptor, const iovec* pieces, int count)
{
    static Next<VectorFunction> next("readv");
    return recordedVector(next, true, descriptor, pieces, count);
}

ssize_t spelledWriteVector(int descriptor, const iovec* pieces, int count)
{
    static Next<VectorFunction> next("writev");
    return recordedVector(next, false, descriptor, pieces, count);
}

ssize_t spelledReceive(int socket, msghdr* message, int flags)
{
    static Next<ReceiveFunction> next("recvmsg");
    return recordedReceive(next, socket, message, flags);
}

ssize_t spelledReceiveTime64(int socket, msghdr* message, int flags)
{
    static Next<ReceiveFunction> next("__recvmsg64");
    return recordedReceive(next, socket, message, flags);
}

} // extern "C"
