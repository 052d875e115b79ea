#include "tool/lock/lockseed.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include "tool/lock/conditions.h"
#include "tool/lock/inwords.h"
#include "tool/lock/processes.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kLongestWaitForOthers = 10000; // milliseconds
constexpr int kAttempts = 10;                // to find a free key, or to put the key file in place
constexpr char kSeeding[] = "seed the lock";
constexpr char kRemoving[] = "remove the lock";

[[noreturn]] void refuse(const char* tried, const std::string& answer, const std::string& next)
{
    throw Failure("lock not changed", tried, answer, next);
}

[[noreturn]] void failWithSystemError(const std::string& tried, const std::string& next)
{
    const int error = errno;
    throw Failure("lock not changed", tried, describeSystemError(error), next).withSystemError(error);
}

/// Blocks signals until the end of the scope.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};

/// The folder; no other seed can use it until the end of the scope.
class OwnFolder
{
public:
    OwnFolder(const std::string& keyFile, const char* tried) : m_folder(keyFile)
    {
        if (!m_folder.exists()) {
            errno = m_folder.obstacleToFiles();
            const LockObstacle obstacle = obstacleOf(errno);
            failWithSystemError(
                std::string(tried) + " in " + m_folder.path(),
                obstacle == LockObstacle::NoDescriptorLeft
                    ? adviceAbout(obstacle)
                    : "TMPDIR names the folder; the default is /tmp. Create it, or set TMPDIR to another one.");
        }
        if (!m_folder.keepOthersOut(kLongestWaitForOthers))
            refuse(tried, "Another process keeps " + m_folder.path() + " locked",
                   "'lslocks' shows which. If it is another 'authchip lock', wait until it ends. Then run this again.");
    }

    const KeyFolder* operator->() const { return &m_folder; }
    const KeyFolder& operator*() const { return m_folder; }

private:
    KeyFolder m_folder;
};

void requireSafe(const KeyFolder& folder)
{
    const std::string flaw = folder.flaw();
    if (!flaw.empty())
        refuse(kSeeding, "The folder " + folder.path() + " " + flaw + ": others could replace the key file",
               kHowToCloseTheFolder);
}

bool isOfSeed(const SemaphoreSet& set)
{
    return set.size == kSemaphoresOfSeed;
}

/// Removes the set of a draft whose seed died before putting it in place: it has no identity yet.
void removeUnfinishedSet(key_t key)
{
    const int number = semget(key, 0, 0);
    const auto set = number < 0 ? std::nullopt : findSemaphoreSet(number);
    const bool isUnfinished = set && isOfSeed(*set) && set->creator == geteuid() &&
                              controlSemaphore(number, 1, GETVAL) == 0 && controlSemaphore(number, 2, GETVAL) == 0;
    if (isUnfinished)
        controlSemaphore(number, 0, IPC_RMID);
}

/// Requires: no other seed is running in the folder.
void tidyUpAfterDeadSeeds(const KeyFolder& folder)
{
    for (const std::string& draft : folder.drafts()) {
        const KeyFile file = folder.look(draft);
        const bool isInPlace = file.status.st_ino == folder.keyFile().status.st_ino; // still has both names
        if (!isInPlace)
            removeUnfinishedSet(file.key);
        folder.remove(draft);
    }
    folder.removeEmptyFoldersOfSeeds();
}

void writeIdentity(int semaphore, const FolderIdentity& identity)
{
    for (int index = 0; index < static_cast<int>(identity.size()); ++index) {
        SemaphoreArgument argument = {};
        argument.value = identity.at(static_cast<std::size_t>(index));
        if (controlSemaphore(semaphore, index + 1, GETVAL) != argument.value)
            controlSemaphore(semaphore, index + 1, SETVAL, argument);
    }
}

void setRights(int semaphore, const LockRights& rights)
{
    if (!changeRights(semaphore, rights))
        failWithSystemError("set the rights of semaphore " + std::to_string(semaphore), "Run as its owner or as root.");
}

std::string usersOf(const KeyFolder& folder)
{
    std::string text;
    for (const pid_t process : findLibraryUsers(folder))
        text += (text.empty() ? "Process " : ", process ") + describeProcess(process);
    return text;
}

/// Removes the orphans that no process can be using. A process that uses one would create another lock afterwards.
void removeUnusedOrphans(const KeyFolder& folder)
{
    constexpr unsigned kForOthers = 0066;
    for (const SemaphoreSet& orphan : findOrphans(folder)) {
        const bool mayHaveUnseenUsers = geteuid() != 0 && (orphan.rights.mode & kForOthers) != 0;
        if (!mayHaveUnseenUsers && findLibraryUsers(folder).empty())
            controlSemaphore(orphan.number, 0, IPC_RMID);
    }
}

/// A new, complete lock that no process can find yet. The end of the scope removes what was not put in place.
class Draft
{
public:
    Draft(const KeyFolder& folder, const LockRights& rights) : m_folder(folder)
    {
        try {
            makeSemaphore();
            setRights(m_semaphore, rights); // before there is a token to take
            if (!m_isTakenUp)
                giveToken();
        } catch (const Failure&) {
            discard();
            throw;
        }
    }
    ~Draft() { discard(); }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    bool isTakenUp() const { return m_isTakenUp; }
    int semaphore() const { return m_semaphore; }

    /// False if another process has put something there meanwhile.
    bool place(const KeyFile& found)
    {
        const bool isFree = found.kind == KeyFileKind::Missing;
        const bool isPlaced = isFree ? m_folder.place(m_names.back()) : m_folder.replace(found, m_names.back());
        if (isPlaced) {
            m_names.pop_back();
            m_isPlaced = true;
            writeIdentity(m_semaphore, m_folder.identity());
            discard(); // the other files; the sets of their keys belong to others
            return true;
        }
        if (errno == EEXIST)
            return false;
        failWithSystemError("put the key file in place in " + m_folder.path(), "The present one belongs to " +
                                                                                   nameOfUser(found.status.st_uid) +
                                                                                   "; remove it, or run this as root.");
    }

private:
    /// A key can already be taken, because it contains only a part of the file's inode number. The files of earlier
    /// attempts stay until the end, so that the next file gets another number.
    void makeSemaphore()
    {
        for (int attempt = 0; attempt < kAttempts && m_semaphore < 0; ++attempt) {
            const key_t key = makeFile();
            constexpr int kForTheOwner = 0600; // until setRights()
            m_semaphore = semget(key, kSemaphoresOfSeed, IPC_CREAT | IPC_EXCL | kForTheOwner);
            if (m_semaphore < 0 && errno != EEXIST)
                failWithSystemError("create a semaphore",
                                    errno == ENOSYS
                                        ? adviceAbout(LockObstacle::NoSemaphores)
                                        : "'ipcs -ls' shows the system's limits, 'ipcs -s' who owns how many.");
            if (m_semaphore < 0)
                takeUp(key);
        }
        if (m_semaphore < 0)
            refuse(kSeeding, "Other programs use the semaphores of " + std::to_string(kAttempts) + " keys in a row",
                   "'ipcs -s' lists them. Stop the program that creates them.");
    }

    key_t makeFile()
    {
        const auto draft = m_folder.makeDraft();
        if (!draft)
            failWithSystemError("create a key file in " + m_folder.path(),
                                "Run as root; make sure that the folder can be written and its disk is not full.");
        m_names.push_back(draft->name);
        return draft->key;
    }

    /// Reuses the set of an earlier seed whose key file was lost, if its token is free or a live process holds it: its
    /// users keep using it.
    void takeUp(key_t key)
    {
        for (const SemaphoreSet& set : semaphoreSets()) {
            const FolderIdentity identity = m_folder.identity();
            const int value = controlSemaphore(set.number, 0, GETVAL);
            const bool isSound = value == 1 || (value == 0 && isAlive(controlSemaphore(set.number, 0, GETPID)));
            m_isTakenUp = set.key == key && isOfSeed(set) && set.creator == geteuid() && isSound &&
                          controlSemaphore(set.number, 1, GETVAL) == identity[0] &&
                          controlSemaphore(set.number, 2, GETVAL) == identity[1];
            if (m_isTakenUp) {
                m_semaphore = set.number;
                return;
            }
        }
    }

    void giveToken() const
    {
        std::array<unsigned short, kSemaphoresOfSeed> values = {1, 0, 0};
        SemaphoreArgument argument = {};
        argument.values = values.data();
        if (controlSemaphore(m_semaphore, 0, SETALL, argument) < 0)
            failWithSystemError("give semaphore " + std::to_string(m_semaphore) + " its token",
                                "The kernel's messages ('dmesg') may say why.");
    }

    void discard()
    {
        if (!m_isPlaced && !m_isTakenUp && m_semaphore >= 0)
            controlSemaphore(std::exchange(m_semaphore, -1), 0, IPC_RMID);
        for (const std::string& name : m_names)
            m_folder.remove(name);
        m_names.clear();
    }

    const KeyFolder& m_folder;
    std::vector<std::string> m_names; // the last is the semaphore's
    int m_semaphore = -1;
    bool m_isTakenUp = false;
    bool m_isPlaced = false;
};

/// Throws a Failure if the present lock is broken, or is not one of a seed.
void requireHealthy(const LockState& state)
{
    const LockProblem problem = problemForSeed(state);
    if (state.condition == LockCondition::Unreadable)
        refuse(kSeeding, problem.found, problem.next);
    if (!state.flaw.empty())
        refuse(kSeeding, state.flaw, kBeginAnew);
    if (problem.cause != nullptr)
        refuse(kSeeding, problem.found, problem.next);
    if (!state.stays)
        refuse(kSeeding,
               "Semaphore " + std::to_string(state.semaphore) +
                   " exists already, and the process that created it will remove it when it exits",
               std::string(kBeginAnew) + " Seed before the first of these programs starts.");
}

LockRights rightsWanted(LockRights present, const WantedRights& wanted)
{
    present.group = wanted.group.value_or(present.group);
    present.mode = wanted.mode.value_or(present.mode);
    return present;
}

SeedResult agree(const KeyFolder& folder, const LockState& state, const WantedRights& wanted)
{
    requireHealthy(state);
    writeIdentity(state.semaphore, folder.identity()); // its seed may have died before that
    removeUnusedOrphans(folder);
    const LockRights rights = rightsWanted(state.rights, wanted);
    if (rights == state.rights)
        return SeedResult::Unchanged;
    setRights(state.semaphore, rights);
    return SeedResult::RightsChanged;
}

/// Processes may still use an orphan as their lock. A second lock would let two processes use the bus at once.
void requireNoUsedOrphan(const KeyFolder& folder, const Draft& draft)
{
    for (const SemaphoreSet& orphan : findOrphans(folder)) {
        const std::string users = usersOf(folder);
        if (orphan.number != draft.semaphore() && !users.empty())
            refuse(kSeeding,
                   "Semaphore " + std::to_string(orphan.number) + ", of an earlier seed, has lost its key file. " +
                       users + " may still use it",
                   kBeginAnew);
    }
}

} // namespace

SeedResult seedLock(const std::string& keyFile, const WantedRights& wanted)
{
    constexpr unsigned kForOwnerAndGroup = 0660;
    const SignalsBlocked signalsWait;
    const OwnFolder folder(keyFile, kSeeding);
    requireSafe(*folder);
    tidyUpAfterDeadSeeds(*folder);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const LockState state = lookAtLock(*folder, keyFile);
        if (state.semaphore >= 0)
            return agree(*folder, state, wanted);
        Draft draft(*folder, rightsWanted({geteuid(), getegid(), kForOwnerAndGroup}, wanted));
        requireNoUsedOrphan(*folder, draft);
        if (!draft.place(state.file))
            continue;
        removeUnusedOrphans(*folder);
        return draft.isTakenUp() ? SeedResult::TakenUp : SeedResult::Made;
    }
    refuse(kSeeding, "Another process keeps recreating the key file",
           "Stop the programs that use the library, and run this again.");
}

bool removeLock(const std::string& keyFile)
{
    const SignalsBlocked signalsWait;
    const OwnFolder folder(keyFile, kRemoving);
    const std::string users = usersOf(*folder);
    if (!users.empty())
        refuse(kRemoving, users + " uses the library and would create another lock", "Stop it first.");
    tidyUpAfterDeadSeeds(*folder);
    const LockState state = lookAtLock(*folder, keyFile);
    if (state.condition == LockCondition::Held)
        refuse(kRemoving, "Process " + describeProcess(state.lastUser) + " holds it", "Stop that process first.");
    std::vector<int> semaphores;
    if (state.semaphore >= 0)
        semaphores.push_back(state.semaphore);
    for (const SemaphoreSet& orphan : findOrphans(*folder))
        semaphores.push_back(orphan.number);
    for (const int semaphore : semaphores) { // before the file: without its semaphore, the file is harmless
        if (controlSemaphore(semaphore, 0, IPC_RMID) < 0 && errno != EIDRM && errno != EINVAL)
            failWithSystemError("remove semaphore " + std::to_string(semaphore), "Run as its owner or as root.");
    }
    if (!folder->removeKeyFile())
        failWithSystemError("remove the key file " + keyFile,
                            "Run as its owner or as root. If it is a folder, empty it first.");
    return !semaphores.empty() || state.keyFileExists;
}

} // namespace VorelKestrel::Tool
