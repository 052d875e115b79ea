// Preloaded into programs in front of the simulated chip, before umockdev's library. Passes calls that umockdev cannot
// handle to the kernel, which answers them as for any file, and passes calls by names that umockdev does not know to
// umockdev by names that it knows.

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

Read g_read = nullptr; // umockdev's
Write g_write = nullptr;
CheckedRead g_checkedRead = nullptr; // the C library's

/// Whether the kernel refuses this count for every file; umockdev would allocate memory for it.
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

/// The name of read in programs compiled with checks of buffer sizes.
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
