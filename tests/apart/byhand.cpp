// A test program that is run by hand, or by the build to list its tests, still runs apart: it restarts itself under
// that program before the library has made its lock. AUTHCHIP_TEST_APART=no in the environment, for a debugger, lets it
// run as it is.

#include <cstring>

#include <unistd.h>

namespace {

constexpr char kVariable[] = "AUTHCHIP_TEST_APART="; // apart sets it

bool isApart(char** environment)
{
    for (; *environment != nullptr; ++environment) {
        if (std::strncmp(*environment, kVariable, sizeof(kVariable) - 1) == 0)
            return true;
    }
    return false;
}

/// Called before any constructor, the C library's own included, so it uses nothing that has to be set up.
void startApart(int count, char** arguments, char** environment)
{
    constexpr int kMost = 1000;
    static char program[] = APART;
    static char* command[kMost + 2] = {program};
    if (isApart(environment) || count > kMost)
        return;
    static char self[4096];
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) <= 0)
        return;
    command[1] = self;
    for (int argument = 1; argument < count; ++argument)
        command[argument + 1] = arguments[argument];
    execve(program, command, environment);
}

} // namespace

__attribute__((section(".preinit_array"), used)) void (*const g_startApart)(int, char**, char**) = startApart;
