#include <chrono>
#include <thread>

#include <sys/stat.h>

#include "tool/doctor/checks.h"
#include "tool/lock/conditions.h"
#include "tool/lock/inwords.h"
#include "tool/lock/otherlocks.h"
#include "tool/lock/processes.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kLongestWait = 2000; // milliseconds

/// Who can hold the lock for ever, or break it: whoever may use it.
std::string describeTrust(const LockRights& rights)
{
    constexpr unsigned kForGroup = 0060;
    constexpr unsigned kForOthers = 0006;
    if ((rights.mode & kForOthers) != 0)
        return "; every local user can block or break it";
    if ((rights.mode & kForGroup) != 0)
        return "; every member of group " + nameOfGroup(rights.group) + " can block or break it";
    return "";
}

Finding asFinding(const LockProblem& problem)
{
    return {problem.cause, problem.found, problem.next};
}

/// A lock that is held is sound: it has to be waited for.
bool isSound(const LockState& state)
{
    return state.condition == LockCondition::None || state.condition == LockCondition::Free ||
           state.condition == LockCondition::Held;
}

/// A process that exits removes its key file just before it is gone.
bool isStillRemoved(const BusUser& user)
{
    constexpr auto kTimeToExit = std::chrono::milliseconds(100);
    std::this_thread::sleep_for(kTimeToExit);
    struct stat status = {};
    return stat(user.keyFile.c_str(), &status) != 0 && isThere(user);
}

/// Whether a process that is on the bus goes by the lock that this one sees.
std::vector<Finding> checkUser(const BusUser& user, const LockState& state)
{
    const std::string process = "process " + describeProcess(user.process);
    struct stat status = {};
    if (!user.sharesSemaphores)
        return {{"second lock", process + " lives in a container with semaphores of its own",
                 "Run it with the machine's ('--ipc=host'), or have one container alone use the bus."}};
    const bool isRemoved = stat(user.keyFile.c_str(), &status) != 0;
    if (isRemoved && !isStillRemoved(user))
        return {};
    if (isRemoved)
        return {{"key file gone", "the key file of " + process + " is removed: the next process gets a second lock",
                 "Stop the programs that use the library and run 'authchip lock seed'; keep clean-ups away from the "
                 "file."}};
    if (!KeyFolder(state.keyFile).isOf(user.keyFile))
        return {{"second lock", process + " has its key file in another folder than " + state.keyFile,
                 "Start all with the same TMPDIR, and without systemd's PrivateTmp=."}};
    if (state.semaphore >= 0 && !user.mayUse(state.rights))
        return {{"lock of another user",
                 process + " of user " + nameOfUser(user.user) + " continues without the lock, which belongs to " +
                     describe(state.rights),
                 howToShare(state.rights)}};
    return {};
}

std::vector<Finding> checkUsers(const Examination& examination, const LockState& state)
{
    std::vector<Finding> findings;
    if (!examination.isBus)
        return findings;
    for (const BusUser& user : findBusUsers(examination.location.device)) {
        for (const Finding& finding : checkUser(user, state))
            findings.push_back(finding);
    }
    return findings;
}

/// What is wrong with a lock's place and its makers, whatever its condition.
std::vector<Finding> checkPlace(const LockState& state)
{
    std::vector<Finding> findings;
    const KeyFolder folder(state.keyFile);
    if (!folder.flaw().empty())
        findings.push_back({"lock not safe", state.flaw, kHowToCloseTheFolder});
    else if (!state.flaw.empty())
        findings.push_back({"lock not safe", state.flaw, std::string("As root: ") + kBeginAnew});
    if (state.semaphore < 0 && state.obstacle != LockObstacle::None)
        findings.push_back({"no lock possible",
                            "none can be made, and programs use the bus without one: " + reasonOf(state.obstacle),
                            adviceAbout(state.obstacle)});
    if (lacksSemaphoreOfSeed(state))
        findings.push_back(
            {"second lock",
             "'authchip lock seed' made the key file, and its semaphore is not here: either this process "
             "has semaphores of its own (a container), and others another lock, or the semaphore was "
             "removed",
             "In a container, use the machine's semaphores ('--ipc=host'); on the machine, run "
             "'authchip lock seed' again."});
    if (isOfOneService(folder))
        findings.push_back({"second lock",
                            folder.path() +
                                " is this service's own (systemd's PrivateTmp=): programs outside of it have "
                                "another lock",
                            kHowToShareTmp});
    for (const SemaphoreSet& orphan : findOrphans(folder))
        findings.push_back(
            {"lock orphaned",
             "semaphore " + std::to_string(orphan.number) +
                 ", of an earlier seed, has lost its key file: programs that still use it do not keep others out",
             kBeginAnew});
    return findings;
}

/// How long the lock lives, and who else has power over it.
std::string describeFuture(const LockState& state)
{
    constexpr uid_t kFirstOfPeople = 1000; // users below are the system's
    std::string text = state.stays ? "it stays, since it was seeded" + describeTrust(state.rights)
                                   : "it is removed when the process that made it exits";
    if (state.rights.owner >= kFirstOfPeople)
        text += "; systemd removes it when " + nameOfUser(state.rights.owner) + " logs out, unless it has RemoveIPC=no";
    return text;
}

/// Acquires the lock, for the checks that follow.
Finding acquire(Examination& examination, const LockState& state)
{
    examination.token.emplace(state.semaphore, kLongestWait);
    if (examination.token->isHeld())
        return healthy("semaphore " + std::to_string(state.semaphore) + ", free; " + describeFuture(state));
    LockState now = lookAtLock(state.keyFile);
    if (isSound(now))
        now.condition = LockCondition::Held; // others took turns all the time
    return asFinding(problemOf(now));        // its holder may have died on the way
}

/// Which other lock others may have.
std::vector<Finding> notesOnOtherLocks(const LockState& state)
{
    std::vector<Finding> notes;
    const KeyFolder folder(state.keyFile);
    if (state.keyFile.front() != '/')
        notes.push_back(note("TMPDIR is a relative path: a process in another folder has another lock",
                             "Set TMPDIR to an absolute path, the same for all who use the bus."));
    if (!state.isSeeded) {
        for (const SemaphoreSet& set : findSeedsElsewhere(folder, state))
            notes.push_back(note("semaphore " + std::to_string(set.number) + " of " + nameOfUser(set.creator) +
                                     " is a seeded lock of another folder than " + folder.path() +
                                     ": programs that use it are not kept off the bus by this one",
                                 "Start all with the same TMPDIR, as the seed was; without it, it is /tmp."));
    }
    if (hasSemaphoresOfItsOwn())
        notes.push_back(
            note("this process has semaphores of its own (a container): processes outside have another lock",
                 "Have one container alone use the bus, or run all with the machine's semaphores "
                 "('--ipc=host')."));
    return notes;
}

} // namespace

std::vector<Finding> checkLock(Examination& examination)
{
    const LockState state = lookAtLock(examination.lockFile);
    std::vector<Finding> findings;
    if (!isSound(state))
        findings.push_back(asFinding(problemOf(state)));
    for (const auto& more : {checkPlace(state), checkUsers(examination, state)})
        findings.insert(findings.end(), more.begin(), more.end());
    if (!findings.empty())
        return findings;
    findings.push_back(state.semaphore < 0
                           ? healthy("no lock yet; the next process makes one. Run 'authchip lock seed' first, or any "
                                     "local user can make it instead")
                           : acquire(examination, state));
    if (!findings.front().isHealthy())
        return findings;
    const std::vector<Finding> notes = notesOnOtherLocks(state);
    findings.insert(findings.end(), notes.begin(), notes.end());
    return findings;
}

} // namespace VorelKestrel::Tool
