// Linked into the product that scripts/mutate builds to see which functions a test reaches: the compiler has every
// function call in here, and the place of each is marked in a file that all processes of the test share, one file for
// the library (MUTANTS_LIBRARY is its name) and one for each program. The test may fake what the C library defines, so
// this calls the system directly; a test that dies has marked all the same.
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {

extern const char __ehdr_start[] __attribute__((visibility("hidden"))); // where the product is

void __cyg_profile_func_enter(void* function, void* caller) __attribute__((no_instrument_function));
void __cyg_profile_func_exit(void* function, void* caller) __attribute__((no_instrument_function));
}

namespace {

constexpr std::size_t kSize = 1U << 24U;

__attribute__((no_instrument_function)) char* openMarks()
{
    const char* const prefix = std::getenv("MUTANTS_REACH");
    if (prefix == nullptr)
        return nullptr;
#ifdef MUTANTS_LIBRARY
    const char* const name = MUTANTS_LIBRARY;
#else
    const char* const name = program_invocation_short_name;
#endif
    char path[4096];
    std::snprintf(path, sizeof path, "%s%s", prefix, name);
    const long file = syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0)
        return nullptr;
    syscall(SYS_ftruncate, file, kSize);
    const long marks = syscall(SYS_mmap, nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0L);
    syscall(SYS_close, file);
    return marks == -1 ? nullptr : reinterpret_cast<char*>(marks);
}

} // namespace

void __cyg_profile_func_enter(void* function, void* /*caller*/)
{
    static char* marks = nullptr;
    static bool opened = false;
    if (!opened) {
        opened = true;
        marks = openMarks();
    }
    const auto offset = static_cast<std::size_t>(static_cast<const char*>(function) - __ehdr_start);
    if (marks != nullptr && offset < kSize)
        marks[offset] = 1;
}

void __cyg_profile_func_exit(void* /*function*/, void* /*caller*/) {}
