#include "tool/lock/names.h"

#include <cstdio>
#include <fstream>

#include <grp.h>
#include <pwd.h>

namespace VorelKestrel::Tool {

std::string nameOfUser(uid_t user)
{
    // cppcheck-suppress getpwuidCalled ; authchip has one thread
    const passwd* entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : std::to_string(user);
}

std::string nameOfGroup(gid_t group)
{
    // cppcheck-suppress getgrgidCalled ; authchip has one thread
    const ::group* entry = getgrgid(group);
    return entry != nullptr ? entry->gr_name : std::to_string(group);
}

std::string inOctal(unsigned mode)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%04o", mode);
    return text;
}

std::string describe(const LockRights& rights)
{
    return nameOfUser(rights.owner) + ", group " + nameOfGroup(rights.group) + ", mode " + inOctal(rights.mode);
}

std::string describeProcess(pid_t process)
{
    if (process == 0)
        return "a process that is not visible here";
    if (!isAlive(process))
        return std::to_string(process) + ", which has ended";
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return std::to_string(process) + (name.empty() ? "" : " (" + name + ")");
}

} // namespace VorelKestrel::Tool
