#include "tool/lock/processes.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

namespace VorelKestrel::Tool {
namespace {

namespace fs = std::filesystem;

constexpr char kProcesses[] = "/proc";
constexpr char kLibrary[] = "/libauthchipdriver.so";

bool isSame(const struct stat& node, const struct stat& file)
{
    const bool isSameFile = node.st_dev == file.st_dev && node.st_ino == file.st_ino;
    const bool isSameBus = S_ISCHR(node.st_mode) && S_ISCHR(file.st_mode) && node.st_rdev == file.st_rdev;
    return isSameFile || isSameBus; // a container has its own nodes for the same bus
}

bool hasOpen(const fs::path& process, const struct stat& node)
{
    std::error_code error;
    for (const auto& descriptor : fs::directory_iterator(process / "fd", error)) {
        struct stat file = {};
        if (stat(descriptor.path().c_str(), &file) == 0 && isSame(node, file))
            return true;
    }
    return false;
}

bool hasLibrary(const fs::path& process)
{
    std::ifstream maps(process / "maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(kLibrary) != std::string::npos)
            return true;
    }
    return false;
}

/// The TMPDIR with which the process was started.
std::string temporaryDirectoryOf(const fs::path& process)
{
    const std::string name = "TMPDIR=";
    std::ifstream environment(process / "environ");
    for (std::string variable; std::getline(environment, variable, '\0');) {
        if (variable.compare(0, name.size(), name) == 0)
            return variable.substr(name.size());
    }
    return "";
}

std::string keyFileOf(const fs::path& process)
{
    const fs::path file = lockKeyFile(temporaryDirectoryOf(process));
    return file.is_absolute() ? (process / "root").string() + file.string() : (process / "cwd" / file).string();
}

bool sharesSemaphores(const fs::path& process)
{
    std::error_code error;
    const auto theirs = fs::read_symlink(process / "ns/ipc", error);
    const auto ours = fs::read_symlink(fs::path(kProcesses) / "self/ns/ipc", error);
    return error || theirs == ours; // a kernel without containers has no such link
}

void readCredentials(BusUser& user, const fs::path& process)
{
    constexpr unsigned kIpcOwner = 15; // the bit of CAP_IPC_OWNER
    std::ifstream status(process / "status");
    for (std::string line; std::getline(status, line);) {
        std::istringstream words(line);
        std::string key;
        words >> key;
        unsigned number = 0;
        if (key == "Uid:" && words >> number >> number) // the second is the effective one
            user.user = number;
        else if (key == "Gid:" && words >> number >> number)
            user.groups.insert(number);
        else if (key == "Groups:")
            while (words >> number)
                user.groups.insert(number);
        else if (key == "CapEff:" && words >> key)
            user.mayUseAnySemaphore = (std::stoull(key, nullptr, 16) >> kIpcOwner & 1U) != 0;
    }
}

pid_t numberOf(const fs::path& process)
{
    return std::stoi(process.filename().string());
}

bool isNumber(const std::string& name)
{
    return std::all_of(name.begin(), name.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
}

/// The folders of all processes, in the order of their numbers.
std::vector<fs::path> processFolders()
{
    std::vector<fs::path> folders;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(kProcesses, error)) {
        if (isNumber(entry.path().filename().string()))
            folders.push_back(entry.path());
    }
    std::sort(folders.begin(), folders.end(),
              [](const auto& one, const auto& other) { return numberOf(one) < numberOf(other); });
    return folders;
}

} // namespace

bool BusUser::mayUse(const LockRights& rights) const
{
    constexpr unsigned kReadAndChange = 6;
    if (mayUseAnySemaphore)
        return true;
    unsigned granted = rights.mode;
    if (user == rights.owner)
        granted >>= 6U;
    else if (groups.count(rights.group) != 0)
        granted >>= 3U;
    return (granted & kReadAndChange) == kReadAndChange;
}

bool isThere(const BusUser& user)
{
    std::error_code error;
    const auto root = fs::read_symlink(fs::path(kProcesses) / std::to_string(user.process) / "root", error);
    return !error && !root.empty(); // a dead process has none, even if its number is still used
}

std::vector<BusUser> findBusUsers(const std::string& device)
{
    std::vector<BusUser> users;
    struct stat node = {};
    if (stat(device.c_str(), &node) != 0)
        return users;
    for (const fs::path& process : processFolders()) {
        if (!hasOpen(process, node) || !hasLibrary(process))
            continue;
        BusUser user;
        user.process = numberOf(process);
        user.keyFile = keyFileOf(process);
        user.sharesSemaphores = sharesSemaphores(process);
        readCredentials(user, process);
        users.push_back(user);
    }
    return users;
}

std::vector<pid_t> findLibraryUsers(const KeyFolder& folder)
{
    std::vector<pid_t> users;
    for (const fs::path& process : processFolders()) {
        const bool isOther = numberOf(process) != getpid();
        if (isOther && hasLibrary(process) && sharesSemaphores(process) && folder.isOf(keyFileOf(process)))
            users.push_back(numberOf(process));
    }
    return users;
}

} // namespace VorelKestrel::Tool
