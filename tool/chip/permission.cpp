#include "tool/chip/permission.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <limits>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace VorelKestrel::Tool {
namespace {

constexpr char kMountedWithoutNodes[] =
    "{device} is on a file system mounted with 'nodev': no node opens there, not even for root ('findmnt -T {device}'\n"
    "shows the options). Name a node below /dev, or mount the file system without that option.";
constexpr char kRootOfAContainer[] =
    "You are root in this container only; outside, you are a user who may not open the node ('ls -l {device}'). Give\n"
    "that user the node's group, and keep the group in the container ('podman run --group-add keep-groups --device\n"
    "{device}'), or have the system's root start the container.";
constexpr char kRootWithoutRights[] =
    "You are root, but without root's right to open any file ('ls -l {device}' shows who may): a container or service\n"
    "that drops CAP_DAC_OVERRIDE, or a security module ('ausearch -m avc'). Let it open the node.";
constexpr char kReadableOnly[] = "This user may read the node, and has to write to it, too ('ls -l {device}'): give "
                                 "the node the mode 660, in a udev\n"
                                 "rule so that it stays.";

constexpr char kWithoutTheGroup[] =
    "This user is in the node's group ('ls -l {device}'), but this process is not: its session began before the user\n"
    "joined the group, or a container gives it no groups. Log in again, restart the service, or give the\n"
    "container the group ('--group-add').";

bool isMountedWithoutNodes(const std::string& device)
{
    struct statvfs status = {};
    return statvfs(device.c_str(), &status) == 0 && (status.f_flag & ST_NODEV) != 0;
}

/// Whether this process is root in a user namespace only: the map of the first one spans all users.
bool isRootOfAContainer()
{
    std::ifstream map("/proc/self/uid_map");
    std::uint32_t inside = 0;
    std::uint32_t outside = 0;
    std::uint32_t count = 0;
    map >> inside >> outside >> count;
    return geteuid() == 0 && map && count != std::numeric_limits<std::uint32_t>::max();
}

std::vector<gid_t> groupsOfProcess()
{
    const int count = getgroups(0, nullptr);
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 0)));
    groups.resize(static_cast<std::size_t>(std::max(getgroups(count, groups.data()), 0)));
    groups.push_back(getegid());
    return groups;
}

/// The groups that a session has that begins now; empty if the system does not know the user.
std::vector<gid_t> groupsOfUser()
{
    // cppcheck-suppress getpwuidCalled ; authchip has one thread
    const passwd* user = getpwuid(geteuid());
    if (user == nullptr)
        return {};
    int count = 0;
    getgrouplist(user->pw_name, user->pw_gid, nullptr, &count);
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    return getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) < 0 ? std::vector<gid_t>() : groups;
}

/// Whether the node is open to a group that the user has joined, and this process does not have.
bool lacksTheGroup(const std::string& device)
{
    constexpr mode_t kForGroup = S_IRGRP | S_IWGRP;
    struct stat node = {};
    if (stat(device.c_str(), &node) != 0 || (node.st_mode & kForGroup) != kForGroup)
        return false;
    const auto has = [&](const std::vector<gid_t>& groups) {
        return std::find(groups.begin(), groups.end(), node.st_gid) != groups.end();
    };
    return has(groupsOfUser()) && !has(groupsOfProcess());
}

} // namespace

const char* adviceAboutPermission(const std::string& device)
{
    if (isMountedWithoutNodes(device))
        return kMountedWithoutNodes;
    if (isRootOfAContainer())
        return kRootOfAContainer;
    if (geteuid() == 0)
        return kRootWithoutRights;
    if (lacksTheGroup(device))
        return kWithoutTheGroup;
    return access(device.c_str(), R_OK) == 0 ? kReadableOnly : nullptr;
}

} // namespace VorelKestrel::Tool
