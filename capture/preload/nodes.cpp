#include "capture/preload/nodes.h"

#include <cstdlib>
#include <cstring>

#include <cctype>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "common/i2cdevice.h"

namespace VorelKestrel::Capture {
namespace {

constexpr char kNodePrefix[] = "/dev/i2c-";
constexpr char kDevicesFolder[] = "/dev/";
constexpr int kInheritedMaximum = 64;

// More than a process usually has open; a larger descriptor shares the place of another one.
constexpr unsigned kPlaces = 4096;
constexpr unsigned kNodes = 1024;

std::atomic<std::uint64_t> g_places[kPlaces]; // 0, or the descriptor plus 1 followed by the number of its node
OpenNode g_nodes[kNodes];

std::atomic<std::uint64_t>& placeOf(int descriptor)
{
    return g_places[static_cast<unsigned>(descriptor) % kPlaces];
}

std::uint64_t entryOf(int descriptor, std::size_t node)
{
    return std::uint64_t{static_cast<AL::U32>(descriptor) + 1U} << 32U | node;
}

/// The node of a descriptor, from the table.
OpenNode* registered(int descriptor)
{
    const std::uint64_t entry = descriptor < 0 ? 0 : placeOf(descriptor).load(std::memory_order_acquire);
    return entry >> 32U == static_cast<AL::U32>(descriptor) + 1U ? &g_nodes[static_cast<AL::U32>(entry)] : nullptr;
}

OpenNode* takeNode()
{
    for (OpenNode& node : g_nodes) {
        int none = 0;
        if (node.descriptors.compare_exchange_strong(none, 1))
            return &node;
    }
    return nullptr;
}

/// The number at the end of a name: 7 for "i2c-7".
AL::U32 numberAtEnd(const char* name)
{
    const char* digits = name + std::strlen(name);
    while (digits > name && std::isdigit(static_cast<unsigned char>(digits[-1])) != 0)
        --digits;
    return static_cast<AL::U32>(std::strtoul(digits, nullptr, 10));
}

bool hasNodeName(const char* path)
{
    constexpr std::size_t kLength = sizeof(kNodePrefix) - 1;
    if (std::strncmp(path, kNodePrefix, kLength) != 0 || path[kLength] == '\0')
        return false;
    return std::strspn(path + kLength, "0123456789") == std::strlen(path + kLength);
}

/// Whether umockdev provides the path as an i2c-dev node, under any name.
bool isSimulated(const char* path)
{
    constexpr std::size_t kLength = sizeof(kDevicesFolder) - 1;
    const char* folder = std::getenv("UMOCKDEV_DIR");
    if (folder == nullptr || std::strncmp(path, kDevicesFolder, kLength) != 0)
        return false;
    char entry[PATH_MAX];
    const int start = std::snprintf(entry, sizeof(entry), "%s/sys/class/i2c-dev/", folder);
    if (start < 0 || static_cast<std::size_t>(start) + std::strlen(path + kLength) >= sizeof(entry))
        return false;
    char* name = entry + start;
    std::memcpy(name, path + kLength, std::strlen(path + kLength) + 1);
    for (; *name != '\0'; ++name)
        *name = *name == '/' ? '!' : *name; // like the kernel
    return syscall(SYS_faccessat, AT_FDCWD, entry, F_OK) == 0;
}

} // namespace

void noticeOpened(int descriptor, const char* path)
{
    struct stat status = {};
    const bool isKnown = fstat(descriptor, &status) == 0;
    const bool isNode = isKnown && S_ISCHR(status.st_mode) && major(status.st_rdev) == kI2cMajor;
    const bool isNamed = path != nullptr && (hasNodeName(path) || isSimulated(path));
    if (!isNode && !isNamed)
        return noticeClosed(descriptor); // the earlier meaning of the number
    OpenNode* node = takeNode();
    if (node == nullptr)
        return;
    node->bus = isNode || !isNamed ? minor(status.st_rdev) : numberAtEnd(path);
    node->hasIdentity = isKnown;
    node->device = status.st_dev;
    node->inode = status.st_ino;
    node->address = kUnknownAddress;
    node->conversation = Conversation();
    noticeClosed(descriptor);
    placeOf(descriptor).store(entryOf(descriptor, static_cast<std::size_t>(node - g_nodes)), std::memory_order_release);
}

void noticeDuplicated(int original, int copy)
{
    if (original == copy)
        return;
    OpenNode* node = registered(original);
    if (node != nullptr)
        ++node->descriptors; // first, so that closing the other one does not free it
    noticeClosed(copy);
    if (node != nullptr)
        placeOf(copy).store(entryOf(copy, static_cast<std::size_t>(node - g_nodes)), std::memory_order_release);
}

void noticeClosed(int descriptor)
{
    OpenNode* node = registered(descriptor);
    if (node == nullptr)
        return;
    placeOf(descriptor).store(0);
    --node->descriptors;
}

void noticeClosed(unsigned first, unsigned last)
{
    for (const std::atomic<std::uint64_t>& place : g_places) {
        const std::uint64_t entry = place.load();
        const auto descriptor = static_cast<AL::U32>(entry >> 32U) - 1U;
        if (entry != 0 && descriptor >= first && descriptor <= last)
            noticeClosed(static_cast<int>(descriptor));
    }
}

void noticeInherited()
{
    for (int descriptor = 0; descriptor < kInheritedMaximum; ++descriptor)
        noticeOpened(descriptor, nullptr);
}

OpenNode* findNode(int descriptor)
{
    OpenNode* node = registered(descriptor);
    if (node == nullptr || !node->hasIdentity)
        return node;
    // The C library closes some descriptors without us, for example in fclose().
    struct stat status = {};
    if (fstat(descriptor, &status) == 0 && status.st_dev == node->device && status.st_ino == node->inode)
        return node;
    noticeClosed(descriptor);
    return nullptr;
}

} // namespace VorelKestrel::Capture
