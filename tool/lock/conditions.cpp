#include "tool/lock/conditions.h"

#include <algorithm>
#include <iterator>

#include "tool/lock/inwords.h"
#include "tool/report/filledin.h"

namespace VorelKestrel::Tool {
namespace {

/// In the texts, {semaphore} is the semaphore's number, {rights} its owner, group and mode, {value} how many tokens it
/// has, {lastUser} the process that changed it last, {waiting} how many wait for a token, and {howToShare} and
/// {howToEnd} what the functions of these names say.
struct Condition
{
    LockCondition condition;
    const char* word;       // for programs
    const char* text;       // for people
    const char* cause;      // for programs; null: this is no problem
    const char* found;      // for whoever uses the lock ...
    const char* next;       // ... and what to do about it
    const char* seedFinds;  // for whoever seeds the lock ...
    const char* nextOfSeed; // ... and what to do about it
};

constexpr Condition kConditions[] = {
    {LockCondition::None, "none", "none; the next process that uses the library creates it", nullptr, "", "", "", ""},
    {LockCondition::Unreadable, "unreadable",
     "this user may not read it; the library would continue without the lock, and say nothing", "lock of another user",
     "semaphore {semaphore} belongs to {rights}; this user's processes continue without it", "{howToShare}",
     "Semaphore {semaphore} already exists and belongs to {rights}", "Run as root."},
    {LockCondition::Free, "free", "free", nullptr, "", "", "", ""},
    {LockCondition::Held, "held", "held", "lock held",
     "process {lastUser} holds it, and did not release it within 2 seconds", "{howToEnd}",
     "Semaphore {semaphore} already exists and is held; its last user is process {lastUser}",
     "Wait until that process has released the lock, or end it; then run this again."},
    {LockCondition::Lost, "lost", "lost: no living process holds it", "token lost",
     "semaphore {semaphore} has no token, and its last user is process {lastUser}; waiting: {waiting}", kBeginAnew,
     "Semaphore {semaphore} already exists, and its token is lost; its last user is process {lastUser}", kBeginAnew},
    {LockCondition::TooMany, "too many", "too many: several processes can hold it at once", "too many tokens",
     "semaphore {semaphore} has {value} tokens: as many processes can hold it at once", kBeginAnew,
     "Semaphore {semaphore} already exists and has {value} tokens: as many processes can hold it at once", kBeginAnew},
};

const Condition& rowOf(LockCondition condition)
{
    return *std::find_if(std::begin(kConditions), std::end(kConditions),
                         [=](const Condition& row) { return row.condition == condition; });
}

LockProblem problem(const LockState& state, const char* found, const char* next)
{
    const Condition& row = rowOf(state.condition);
    const bool namesUser = std::string(found).find("{lastUser}") != std::string::npos;
    return {row.cause,
            filledIn(found, {{"{semaphore}", std::to_string(state.semaphore)},
                             {"{rights}", describe(state.rights)},
                             {"{value}", std::to_string(state.value)},
                             {"{lastUser}", namesUser ? describeProcess(state.lastUser) : ""},
                             {"{waiting}", std::to_string(state.waiting)}}),
            filledIn(next, {{"{howToShare}", howToShare(state.rights)}, {"{howToEnd}", howToEnd(state.lastUser)}})};
}

} // namespace

std::string howToShare(const LockRights& rights)
{
    constexpr unsigned kForGroup = 0060;
    constexpr gid_t kGroupOfRoot = 0; // which nobody should join
    if ((rights.mode & kForGroup) != kForGroup || rights.group == kGroupOfRoot)
        return kSeedForAll;
    const std::string group = nameOfGroup(rights.group);
    return "Join group " + group + " ('adduser USER " + group + "' as root, then log in again); or have root run\n" +
           "'authchip lock seed --group NAME' at boot, with a group of all who use the bus.";
}

const char* wordOf(LockCondition condition)
{
    return rowOf(condition).word;
}

const char* describe(LockCondition condition)
{
    return rowOf(condition).text;
}

LockProblem problemOf(const LockState& state)
{
    const Condition& row = rowOf(state.condition);
    return problem(state, row.found, row.next);
}

LockProblem problemForSeed(const LockState& state)
{
    const Condition& row = rowOf(state.condition);
    return problem(state, row.seedFinds, row.nextOfSeed);
}

} // namespace VorelKestrel::Tool
