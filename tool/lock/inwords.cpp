#include "tool/lock/inwords.h"

#include <cstdio>
#include <fstream>
#include <sstream>

#include <grp.h>
#include <pwd.h>

#include "common/escaped.h"

namespace VorelKestrel::Tool {
namespace {

struct ObstacleRow
{
    LockObstacle obstacle;
    const char* text;
    const char* next;
};

constexpr ObstacleRow kObstacles[] = {
    {LockObstacle::None, "", ""},
    {LockObstacle::NoFolder, "the folder for the key file does not exist",
     "Set TMPDIR to a folder that exists, the same for all who use the bus, or leave it out (/tmp)."},
    {LockObstacle::NoDescriptorLeft, "this process has no descriptor left to open the folder for the key file",
     "Raise 'ulimit -n', or close what the shell has open; 'cat /proc/sys/fs/file-nr' shows the system's."},
    {LockObstacle::FolderNotWritable, "this user cannot make the key file in its folder",
     "Run 'authchip lock seed' as root, or have the folder of all who use the bus writable (TMPDIR, or /tmp)."},
    {LockObstacle::FolderReadOnly, "the folder for the key file is on a read-only file system",
     "Mount a writable file system there (a tmpfs on /tmp), or name another folder in TMPDIR, the same for all who "
     "use\n"
     "the bus."},
    {LockObstacle::FolderFull, "the folder for the key file is full: no file can be made there",
     "Remove files there ('df' and 'df -i' show what is used), or raise the user's quota."},
    {LockObstacle::BrokenLink, "the key file is a symbolic link that cannot be followed",
     "Run 'authchip lock remove' as root, and then 'authchip lock seed'."},
    {LockObstacle::NoSemaphores, "the system gives this process no System V semaphores",
     "Use a kernel with CONFIG_SYSVIPC, or let the container's or service's filter of system calls pass semget()."},
    {LockObstacle::NoSemaphoreLeft, "the system has no semaphore left",
     "'ipcs -s' lists the semaphores; remove those that nobody uses ('ipcrm -s'), or raise the limit\n"
     "('sysctl kernel.sem')."},
};

std::string folderOf(pid_t process)
{
    return "/proc/" + std::to_string(process);
}

/// What keeps a process from going on.
struct Halt
{
    const char* word; // behind its name; empty: nothing
    pid_t debugger;   // 0: none
    bool isInKernel;  // where no signal reaches it
};

Halt findHalt(pid_t process)
{
    constexpr char kStopped = 'T'; // by a signal
    constexpr char kTraced = 't';
    constexpr char kInKernel = 'D';
    std::ifstream status(folderOf(process) + "/status");
    char state = 0;
    pid_t tracer = 0;
    for (std::string line; std::getline(status, line);) {
        std::istringstream words(line);
        std::string key;
        words >> key;
        if (key == "State:")
            words >> state;
        else if (key == "TracerPid:")
            words >> tracer;
    }
    if (state == kTraced)
        return {", stopped by its debugger", tracer, false};
    if (state == kInKernel)
        return {", waiting in the kernel", 0, true};
    return {state == kStopped ? ", stopped" : "", 0, false};
}

const ObstacleRow& rowOf(LockObstacle obstacle)
{
    for (const auto& row : kObstacles) {
        if (row.obstacle == obstacle)
            return row;
    }
    return kObstacles[0];
}

} // namespace

std::string nameOfUser(uid_t user)
{
    // cppcheck-suppress getpwuidCalled ; authchip has one thread
    const passwd* entry = getpwuid(user);
    return entry != nullptr ? escaped(entry->pw_name) : std::to_string(user);
}

std::string nameOfGroup(gid_t group)
{
    // cppcheck-suppress getgrgidCalled ; authchip has one thread
    const ::group* entry = getgrgid(group);
    return entry != nullptr ? escaped(entry->gr_name) : std::to_string(group);
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

std::string reasonOf(LockObstacle obstacle)
{
    return rowOf(obstacle).text;
}

std::string adviceAbout(LockObstacle obstacle)
{
    return rowOf(obstacle).next;
}

std::string describeProcess(pid_t process)
{
    if (process == 0)
        return "0 (outside of this container)";
    if (!isAlive(process))
        return std::to_string(process) + ", which has ended";
    std::ifstream file(folderOf(process) + "/comm");
    std::string name;
    std::getline(file, name, '\0');
    if (!name.empty() && name.back() == '\n') // the kernel's; others are part of the name
        name.pop_back();
    if (name.empty())
        return std::to_string(process) + " (hidden from this user; root may see its name)";
    return std::to_string(process) + " (" + escaped(name) + findHalt(process).word + ")";
}

std::string howToEnd(pid_t process)
{
    if (process == 0)
        return "Run 'authchip doctor' outside of the container: it names the process. When that ends, the system "
               "releases the lock.";
    const Halt halt = findHalt(process);
    const std::string number = std::to_string(process);
    const std::string orEndIt = ", or end it ('kill -KILL " + number + "'): the system then releases the lock.";
    if (halt.debugger != 0)
        return "Continue it in the debugger, process " + describeProcess(halt.debugger) + orEndIt;
    if (halt.isInKernel)
        return "If it stays so, its bus controller does not answer, and no signal ends it: 'dmesg' and '/proc/" +
               number + "/stack' tell more.";
    if (*halt.word != '\0')
        return "Continue it, as after Ctrl-Z ('fg' in its shell, or 'kill -CONT " + number + "')" + orEndIt;
    return "If that process hangs, end it: the system then releases the lock.";
}

} // namespace VorelKestrel::Tool
