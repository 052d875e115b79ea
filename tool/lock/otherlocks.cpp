#include "tool/lock/otherlocks.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

#include "common/lockkey.h"

namespace VorelKestrel::Tool {
namespace {

/// By the clock as it is now: one that was set since says nothing of a file from before.
bool isOfThisBoot(const struct stat& file)
{
    timespec now = {};
    timespec sinceBoot = {};
    clock_gettime(CLOCK_REALTIME, &now);
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    return file.st_ctim.tv_sec > now.tv_sec - sinceBoot.tv_sec;
}

bool isLock(const SemaphoreSet& set)
{
    return set.size == kSemaphoresOfSeed &&
           static_cast<std::uint32_t>(set.key) >> kLockKeyProjectShift == kLockKeyProject;
}

/// The kernel writes a blank in the name of a mount point as "\040".
std::string withoutEscapes(const std::string& text)
{
    constexpr std::size_t kLength = 4;
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::string digits = text[at] == '\\' ? text.substr(at + 1, kLength - 1) : "";
        const bool isEscape = digits.size() == kLength - 1 && digits.find_first_not_of("01234567") == std::string::npos;
        plain += isEscape ? static_cast<char>(std::stoi(digits, nullptr, 8)) : text[at];
        at += isEscape ? digits.size() : 0;
    }
    return plain;
}

} // namespace

bool lacksSemaphoreOfSeed(const LockState& state)
{
    return state.file.kind == KeyFileKind::OfSeed && !state.isSeeded && isOfThisBoot(state.file.status);
}

std::vector<SemaphoreSet> findSeedsElsewhere(const KeyFolder& folder, const LockState& state)
{
    std::vector<SemaphoreSet> sets = semaphoreSets();
    const std::vector<SemaphoreSet> orphans = findOrphans(folder);
    const auto isOfHere = [&](const SemaphoreSet& set) {
        return set.number == state.semaphore || std::any_of(orphans.begin(), orphans.end(), [&](const auto& orphan) {
                   return orphan.number == set.number;
               });
    };
    sets.erase(std::remove_if(
                   sets.begin(), sets.end(),
                   [&](const SemaphoreSet& set) { return !isLock(set) || !isTrusted(set.creator) || isOfHere(set); }),
               sets.end());
    return sets;
}

bool isOfOneService(const std::string& folder, std::istream& mounts)
{
    std::string innermost; // the longest mount point that the folder is in
    std::string source;    // what is mounted there, as a path on its own file system
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream words(line);
        std::string number;
        std::string parent;
        std::string device;
        std::string root;
        std::string place;
        words >> number >> parent >> device >> root >> place;
        const std::string below = place == "/" ? place : withoutEscapes(place) + "/";
        if ((folder + "/").compare(0, below.size(), below) != 0 || below.size() < innermost.size())
            continue;
        innermost = below; // a later mount hides an earlier one in the same place
        source = root;
    }
    return source.find("/systemd-private-") != std::string::npos;
}

bool isOfOneService(const KeyFolder& folder)
{
    std::error_code error;
    const auto path = std::filesystem::canonical(folder.path(), error);
    std::ifstream mounts("/proc/self/mountinfo");
    return !error && isOfOneService(path.string(), mounts);
}

bool hasSemaphoresOfItsOwn()
{
    constexpr char kOfTheMachine[] = "ipc:[4026531839]"; // the same number in every kernel
    std::error_code error;
    const auto ours = std::filesystem::read_symlink("/proc/self/ns/ipc", error);
    return !error && ours != kOfTheMachine;
}

} // namespace VorelKestrel::Tool
