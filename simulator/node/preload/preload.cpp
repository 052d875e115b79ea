// Preloaded into the programs in front of the simulated chip, before umockdev's library: calls that umockdev cannot
// carry go to the kernel instead, which answers them as it answers them on any file.

#include <climits>
#include <cstddef>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

using Read = ssize_t (*)(int, void*, size_t);
using Write = ssize_t (*)(int, const void*, size_t);

Read g_read = nullptr; // umockdev's; two threads may look it up at once and find the same
Write g_write = nullptr;

/// The next library's function of the name, looked up once.
template<typename Function>
Function nextOf(const char* name, Function& known)
{
    Function function = __atomic_load_n(&known, __ATOMIC_RELAXED);
    if (function == nullptr) {
        function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
        __atomic_store_n(&known, function, __ATOMIC_RELAXED);
    }
    return function;
}

/// Whether the kernel refuses the count, on whatever file; umockdev would have to find memory for it.
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

ssize_t write(int descriptor, const void* buffer, size_t count)
{
    return isRefused(count) ? syscall(SYS_write, descriptor, buffer, count)
                            : nextOf("write", g_write)(descriptor, buffer, count);
}

} // extern "C"
