// Preloaded into the programs in front of the simulated chip, before umockdev's library: calls that umockdev cannot
// carry go to the kernel instead, which answers them as it answers them on any file, and calls by names that umockdev
// does not know go to it by the names that it does.

#include <climits>
#include <cstddef>

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include "simulator/node/preload/nextdefinition.h"

namespace {

using Read = ssize_t (*)(int, void*, size_t);
using CheckedRead = ssize_t (*)(int, void*, size_t, size_t);
using Write = ssize_t (*)(int, const void*, size_t);

Read g_read = nullptr; // umockdev's; two threads may look it up at once and find the same
Write g_write = nullptr;
CheckedRead g_checkedRead = nullptr; // the C library's

/// Whether the kernel refuses this count on every file; umockdev would have to allocate memory for it.
bool isRefused(size_t count)
{
    return count > SSIZE_MAX;
}

} // namespace

extern "C" {

ssize_t read(int descriptor, void* buffer, size_t count)
{
    return isRefused(count) ? syscall(SYS_read, descriptor, buffer, count)
                            : nextOf("read", g_read)(descriptor, buffer, count);
}

/// What read is in programs whose compiler checks the room in the buffer.
ssize_t __read_chk(int descriptor, void* buffer, size_t count, size_t room) // NOLINT(*-reserved-identifier): its name
{
    return count > room ? nextOf("__read_chk", g_checkedRead)(descriptor, buffer, count, room)
                        : read(descriptor, buffer, count);
}

ssize_t write(int descriptor, const void* buffer, size_t count)
{
    return isRefused(count) ? syscall(SYS_write, descriptor, buffer, count)
                            : nextOf("write", g_write)(descriptor, buffer, count);
}

} // extern "C"
