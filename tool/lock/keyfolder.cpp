#include "tool/lock/keyfolder.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <unistd.h>

#include "common/lockkey.h"
#include "tool/lock/inwords.h"

namespace VorelKestrel::Tool {
namespace {

// The names that Qt gives: the file's is its word, then the letters of the lock's name, then the SHA-1 of that name.
constexpr char kKeyFileName[] = "qipc_systemsem_Wexfordmallowb528dc6704516c18d022877c1c01ebd38f99a27b";
constexpr char kDefaultDirectory[] = "/tmp";

/// The mode of a seed's key file. Qt, whose files have no right for others, never makes one like it; nobody reads or
/// writes it, whatever its mode.
constexpr mode_t kModeOfSeed = 0444;

std::string draftPrefix()
{
    return std::string(kKeyFileName) + ".seed-";
}

/// As ftok(), which would look the path up a second time.
key_t keyOf(const struct stat& status)
{
    constexpr std::uint64_t kLowByte = 0xff;
    constexpr std::uint64_t kLowWord = 0xffff;
    return static_cast<key_t>(kLockKeyProject << kLockKeyProjectShift | (status.st_dev & kLowByte) << 16U |
                              (status.st_ino & kLowWord));
}

KeyFileKind kindOf(const struct stat& status)
{
    constexpr mode_t kRights = 07777;
    if (!S_ISREG(status.st_mode))
        return KeyFileKind::NoFile;
    // However many names it has: a seed that dies leaves two, and where the system allows it anybody can make one.
    return (status.st_mode & kRights) == kModeOfSeed ? KeyFileKind::OfSeed : KeyFileKind::OfLibrary;
}

struct CloseDirectory
{
    void operator()(DIR* directory) const { closedir(directory); }
};

std::uint64_t hashOf(std::uint64_t one, std::uint64_t other)
{
    constexpr std::uint64_t kPrime = 1099511628211U; // of FNV-1a
    std::uint64_t hash = 14695981039346656037U;
    for (const std::uint64_t number : {one, other}) {
        for (unsigned shift = 0; shift < 64; shift += 8)
            hash = (hash ^ (number >> shift & 0xffU)) * kPrime;
    }
    return hash;
}

} // namespace

std::string lockKeyFile()
{
    const char* directory = std::getenv("TMPDIR");
    return lockKeyFile(directory == nullptr ? "" : directory);
}

std::string lockKeyFile(const std::string& temporaryDirectory)
{
    const std::filesystem::path directory(temporaryDirectory.empty() ? kDefaultDirectory : temporaryDirectory);
    return (directory / kKeyFileName).lexically_normal().string();
}

bool isTrusted(uid_t user)
{
    return user == 0 || user == geteuid();
}

KeyFolder::KeyFolder(const std::string& keyFile) : m_path(std::filesystem::path(keyFile).parent_path().string())
{
    if (m_path.empty())
        m_path = ".";
    m_folder = ScopedDescriptor(open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    m_error = m_folder.get() < 0 ? errno : 0;
}

int KeyFolder::obstacleToFiles() const
{
    if (m_error != 0)
        return m_error;
    if (faccessat(m_folder.get(), ".", W_OK | X_OK, AT_EACCESS) != 0)
        return errno;
    constexpr int kWithoutAName = O_TMPFILE | O_WRONLY | O_CLOEXEC; // not every file system has such files
    const ScopedDescriptor file(openat(m_folder.get(), ".", kWithoutAName, S_IRUSR | S_IWUSR));
    return file.get() < 0 && (errno == ENOSPC || errno == EDQUOT) ? errno : 0;
}

std::string KeyFolder::flaw() const
{
    struct stat status = {};
    if (fstat(m_folder.get(), &status) != 0)
        return "";
    if (!isTrusted(status.st_uid))
        return "belongs to " + nameOfUser(status.st_uid);
    const bool isWritableForOthers = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (isWritableForOthers && (status.st_mode & S_ISVTX) == 0)
        return "is writable for other users and not sticky";
    return "";
}

FolderIdentity KeyFolder::identity() const
{
    constexpr std::uint64_t kLargestValue = 0x7fff; // of a semaphore
    struct stat status = {};
    fstat(m_folder.get(), &status);
    const std::uint64_t hash = hashOf(status.st_dev, status.st_ino);
    const std::uint64_t low = hash & kLargestValue;
    return {static_cast<unsigned short>(hash >> 32U & kLargestValue), static_cast<unsigned short>(low == 0 ? 1 : low)};
}

bool KeyFolder::isOf(const std::string& keyFile) const
{
    const std::string path = std::filesystem::path(keyFile).parent_path().string();
    struct stat ours = {};
    struct stat theirs = {};
    return fstat(m_folder.get(), &ours) == 0 && stat(path.c_str(), &theirs) == 0 && ours.st_dev == theirs.st_dev &&
           ours.st_ino == theirs.st_ino;
}

KeyFile KeyFolder::keyFile() const
{
    return look(kKeyFileName);
}

KeyFile KeyFolder::look(const std::string& name) const
{
    KeyFile file;
    if (fstatat(m_folder.get(), name.c_str(), &file.status, AT_SYMLINK_NOFOLLOW) != 0)
        return file;
    file.kind = kindOf(file.status);
    struct stat target = file.status;
    if (!S_ISLNK(file.status.st_mode) || fstatat(m_folder.get(), name.c_str(), &target, 0) == 0)
        file.key = keyOf(target);
    return file;
}

std::vector<std::string> KeyFolder::leftovers() const
{
    std::vector<std::string> names;
    const std::string prefix = draftPrefix();
    const int copy = openat(m_folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, CloseDirectory> directory(copy < 0 ? nullptr : fdopendir(copy));
    while (directory != nullptr) {
        const dirent* entry = readdir(directory.get()); // cppcheck-suppress readdirCalled ; a stream of its own
        if (entry == nullptr)
            break;
        const std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) == 0)
            names.push_back(name);
    }
    return names;
}

std::vector<std::string> KeyFolder::drafts() const
{
    std::vector<std::string> names = leftovers();
    const auto isNone = [this](const std::string& name) {
        const KeyFile file = look(name);
        return !S_ISREG(file.status.st_mode) || file.status.st_uid != geteuid();
    };
    names.erase(std::remove_if(names.begin(), names.end(), isNone), names.end());
    return names;
}

void KeyFolder::removeEmptyFoldersOfSeeds() const
{
    for (const std::string& name : leftovers())
        unlinkat(m_folder.get(), name.c_str(), AT_REMOVEDIR);
}

bool KeyFolder::keepOthersOut(int milliseconds) const
{
    constexpr auto kPause = std::chrono::milliseconds(20);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (flock(m_folder.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK)
            return true; // a file system without such locks: two seeds at once are rare
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

std::optional<KeyFolder::Draft> KeyFolder::makeDraft() const
{
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof(number), 0) != sizeof(number))
        return std::nullopt;
    char digits[17];
    std::snprintf(digits, sizeof(digits), "%016llx", static_cast<unsigned long long>(number));
    std::string name = draftPrefix() + digits;
    constexpr int kNew = O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const ScopedDescriptor file(openat(m_folder.get(), name.c_str(), kNew, kModeOfSeed));
    struct stat status = {};
    // The mode whatever the umask; the key of what was opened, not of what has the name by now.
    if (file.get() < 0 || fchmod(file.get(), kModeOfSeed) != 0 || fstat(file.get(), &status) != 0)
        return std::nullopt;
    return Draft{std::move(name), keyOf(status)};
}

bool KeyFolder::place(const std::string& draft) const
{
    if (linkat(m_folder.get(), draft.c_str(), m_folder.get(), kKeyFileName, 0) != 0)
        return false;
    remove(draft);
    return true;
}

bool KeyFolder::replace(const KeyFile& obstacle, const std::string& draft) const
{
    const std::string aside = draft + ".replaced";
    const bool isFolder = S_ISDIR(obstacle.status.st_mode); // no file can take its place
    if (isFolder && renameat(m_folder.get(), kKeyFileName, m_folder.get(), aside.c_str()) != 0)
        return false;
    const bool isDone = renameat(m_folder.get(), draft.c_str(), m_folder.get(), kKeyFileName) == 0;
    const int error = errno;
    if (isFolder)
        removeEmptyFoldersOfSeeds(); // what is in one that is not empty is not ours to remove
    errno = error;
    return isDone;
}

bool KeyFolder::remove(const std::string& name) const
{
    return unlinkat(m_folder.get(), name.c_str(), 0) == 0;
}

bool KeyFolder::removeKeyFile() const
{
    const bool isFolder = S_ISDIR(keyFile().status.st_mode);
    return unlinkat(m_folder.get(), kKeyFileName, isFolder ? AT_REMOVEDIR : 0) == 0 || errno == ENOENT;
}

} // namespace VorelKestrel::Tool
