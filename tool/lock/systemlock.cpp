#include "tool/lock/systemlock.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fstream>
#include <optional>

#include <sys/ipc.h>
#include <sys/sem.h>

#include "tool/lock/inwords.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kLock = 0; // the first of a set; the library knows no other

struct Counts
{
    int value = 0;
    int lastUser = 0;
    int waiting = 0;
    bool wasEverTaken = false;

    bool operator==(const Counts& other) const { return value == other.value && lastUser == other.lastUser; }
};

std::optional<Counts> countsOf(int semaphore)
{
    Counts counts;
    counts.value = controlSemaphore(semaphore, kLock, GETVAL);
    counts.lastUser = controlSemaphore(semaphore, kLock, GETPID);
    counts.waiting = controlSemaphore(semaphore, kLock, GETNCNT);
    semid_ds status = {};
    SemaphoreArgument whole = {};
    whole.status = &status;
    if (counts.value < 0 || counts.lastUser < 0 || counts.waiting < 0 ||
        controlSemaphore(semaphore, kLock, IPC_STAT, whole) < 0)
        return std::nullopt;
    counts.wasEverTaken = status.sem_otime != 0;
    return counts;
}

LockCondition judge(const Counts& counts, bool lastUserIsAlive)
{
    if (counts.value > 1)
        return LockCondition::TooMany;
    if (counts.value == 1)
        return LockCondition::Free;
    // SEM_UNDO has already returned a dead process's token; a token still missing is lost. Nor does one come that was
    // never there: Qt makes a semaphore without a token if the one that it found goes away meanwhile.
    return counts.wasEverTaken && lastUserIsAlive ? LockCondition::Held : LockCondition::Lost;
}

/// Value and last user are two calls: repeat until two readings agree.
void readCounts(LockState& state)
{
    auto counts = countsOf(state.semaphore);
    while (counts) {
        const bool lastUserIsAlive = isAlive(counts->lastUser);
        const auto again = countsOf(state.semaphore);
        if (again && *again == *counts) {
            state.condition = judge(*again, lastUserIsAlive);
            state.value = again->value;
            state.lastUser = again->lastUser;
            state.waiting = again->waiting;
            return;
        }
        counts = again;
    }
    state.condition = errno == EACCES ? LockCondition::Unreadable : LockCondition::None; // or it has just gone
}

std::string madeByAnother(const std::string& what, uid_t user)
{
    return what + " was made by " + nameOfUser(user) + ", who can remove it at any time";
}

/// What speaks against a lock, or against the place where one will be.
std::string flawOf(const KeyFolder& folder, const LockState& state)
{
    const std::string semaphore = "Semaphore " + std::to_string(state.semaphore);
    if (!folder.flaw().empty())
        return "The folder " + folder.path() + " " + folder.flaw() + ": others could replace the key file";
    if (state.file.kind == KeyFileKind::NoFile)
        return "The key file is no regular file; " + nameOfUser(state.file.status.st_uid) + " has put it there";
    if (state.isSeeded && !isTrusted(state.creator))
        return madeByAnother(semaphore, state.creator);
    if (state.isSeeded && !isTrusted(state.file.status.st_uid))
        return madeByAnother("The key file of semaphore " + std::to_string(state.semaphore), state.file.status.st_uid);
    if (state.isSeeded && state.file.kind != KeyFileKind::OfSeed)
        return semaphore + " has lost the key file of its seed; the process that made this one removes it at its exit";
    return "";
}

LockObstacle obstacleTo(const KeyFolder& folder, const KeyFile& file)
{
    const int error = file.kind == KeyFileKind::Missing ? folder.obstacleToFiles() : 0;
    if (error != 0)
        return obstacleOf(error);
    if (file.kind != KeyFileKind::Missing && file.key == -1)
        return LockObstacle::BrokenLink;
    if (!hasSemaphores())
        return LockObstacle::NoSemaphores;
    return areSemaphoresExhausted() ? LockObstacle::NoSemaphoreLeft : LockObstacle::None;
}

bool isDraftOf(const KeyFolder& folder, key_t key)
{
    const auto drafts = folder.drafts();
    return std::any_of(drafts.begin(), drafts.end(), [&](const auto& name) { return folder.look(name).key == key; });
}

int change(int semaphore, short delta, const timespec* timeout)
{
    sembuf operation = {kLock, delta, SEM_UNDO};
    int result = -1;
    do {
        result = semtimedop(semaphore, &operation, 1, timeout);
    } while (result < 0 && errno == EINTR);
    return result < 0 ? errno : 0;
}

/// True for a zombie, whose number is in use until its parent has looked. Its tokens are given back by then.
bool hasEnded(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    std::getline(file, line);
    const auto name = line.rfind(") "); // the name may have anything in it; the state follows
    return name != std::string::npos && line.at(name + 2) == 'Z';
}

timespec fromMilliseconds(int milliseconds)
{
    timespec time = {};
    time.tv_sec = milliseconds / 1000;
    time.tv_nsec = (milliseconds % 1000) * 1000000L;
    return time;
}

} // namespace

LockObstacle obstacleOf(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return LockObstacle::NoFolder;
    case EMFILE:
    case ENFILE:
        return LockObstacle::NoDescriptorLeft;
    case EROFS:
        return LockObstacle::FolderReadOnly;
    case ENOSPC:
    case EDQUOT:
        return LockObstacle::FolderFull;
    default:
        return LockObstacle::FolderNotWritable;
    }
}

LockState lookAtLock(const std::string& keyFile)
{
    return lookAtLock(KeyFolder(keyFile), keyFile);
}

LockState lookAtLock(const KeyFolder& folder, const std::string& keyFile)
{
    LockState state;
    state.keyFile = keyFile;
    state.file = folder.keyFile();
    state.keyFileExists = state.file.kind != KeyFileKind::Missing;
    state.key = state.file.key;
    state.semaphore = state.key == -1 ? -1 : semget(state.key, 0, 0);
    if (state.semaphore < 0) {
        state.obstacle = obstacleTo(folder, state.file);
        state.flaw = flawOf(folder, state);
        return state;
    }
    const SemaphoreSet set = findSemaphoreSet(state.semaphore).value_or(SemaphoreSet{});
    state.rights = set.rights;
    state.creator = set.creator;
    state.isSeeded = set.size == kSemaphoresOfSeed;
    state.flaw = flawOf(folder, state);
    state.stays = state.isSeeded && state.flaw.empty();
    readCounts(state);
    return state;
}

std::vector<SemaphoreSet> findOrphans(const KeyFolder& folder)
{
    std::vector<SemaphoreSet> orphans;
    const FolderIdentity identity = folder.identity();
    for (const SemaphoreSet& set : semaphoreSets()) {
        const bool isOurs = set.size == kSemaphoresOfSeed && isTrusted(set.creator) &&
                            controlSemaphore(set.number, 1, GETVAL) == identity[0] &&
                            controlSemaphore(set.number, 2, GETVAL) == identity[1];
        if (isOurs && set.key != folder.keyFile().key && !isDraftOf(folder, set.key))
            orphans.push_back(set);
    }
    return orphans;
}

bool isAlive(pid_t process)
{
    return (kill(process, 0) == 0 || errno == EPERM) && !hasEnded(process);
}

LockToken::LockToken(int semaphore, int milliseconds) : m_semaphore(semaphore)
{
    const timespec timeout = fromMilliseconds(milliseconds);
    m_error = change(semaphore, -1, &timeout);
}

LockToken::~LockToken()
{
    if (isHeld())
        change(m_semaphore, 1, nullptr);
}

} // namespace VorelKestrel::Tool
