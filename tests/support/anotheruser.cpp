#include "tests/support/anotheruser.h"

#include <fstream>
#include <grp.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace testsupport {

bool becomeNobody()
{
    return setgroups(0, nullptr) == 0 && setgid(kNogroup) == 0 && setuid(kNobody) == 0;
}

bool canBecomeNobody()
{
    const pid_t process = fork();
    if (process == 0)
        _exit(becomeNobody() ? 0 : 1);
    int status = 1;
    return waitpid(process, &status, 0) == process && status == 0;
}

bool hasRight(int capability)
{
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != "CapEff:") {}
    unsigned long long rights = 0;
    status >> std::hex >> rights;
    return (rights >> static_cast<unsigned>(capability) & 1U) != 0;
}

} // namespace testsupport
