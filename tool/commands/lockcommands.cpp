#include "tool/commands/lockcommands.h"

#include <grp.h>
#include <unistd.h>

#include "common/hex.h"
#include "tool/lock/names.h"
#include "tool/lock/systemlock.h"
#include "tool/report/failure.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

constexpr char kHowToBeginAnew[] =
    "Stop the programs that use the library, remove the semaphore with 'ipcrm -s {semaphore}', and run\n"
    "'authchip lock seed' again.";

std::string howToBeginAnew(const LockState& state)
{
    std::string text = kHowToBeginAnew;
    const std::string placeholder = "{semaphore}";
    return text.replace(text.find(placeholder), placeholder.size(), std::to_string(state.semaphore));
}

struct ConditionRow
{
    LockCondition condition;
    const char* word; // for programs
    const char* text;
};

constexpr ConditionRow kConditions[] = {
    {LockCondition::None, "none", "none; the next process that uses the library makes it"},
    {LockCondition::Unreadable, "unreadable",
     "not to be seen by this user; the library would go on without the lock, and say nothing"},
    {LockCondition::Free, "free", "free"},
    {LockCondition::Held, "held", "held"},
    {LockCondition::Lost, "lost", "lost: nobody lives who could give it back"},
    {LockCondition::TooMany, "too many", "too many: as many processes get in at once"},
};

const ConditionRow& rowOf(LockCondition condition)
{
    for (const auto& row : kConditions) {
        if (row.condition == condition)
            return row;
    }
    return kConditions[0];
}

bool isReadable(const LockState& state)
{
    return state.condition != LockCondition::None && state.condition != LockCondition::Unreadable;
}

void addText(Report& report, const LockState& state)
{
    report.text("key file", state.keyFile + (state.keyFileExists ? "" : ", which does not exist"));
    if (state.semaphore < 0) {
        report.text("semaphore", rowOf(state.condition).text);
        return;
    }
    report
        .text("semaphore", std::to_string(state.semaphore) + ", key " + toHex(static_cast<std::uint32_t>(state.key), 8))
        .text("owner", describe(state.rights))
        .text("at an exit", state.stays ? "stays, as 'authchip lock seed' has made it"
                                        : "goes away with the process that has made it")
        .text("value", (isReadable(state) ? std::to_string(state.value) + ": " : "") + rowOf(state.condition).text);
    if (isReadable(state))
        report.text("last user", describeProcess(state.lastUser)).text("waiting", std::to_string(state.waiting));
}

/// Every key is there, whatever there is to say.
void addJson(Report& report, const LockState& state)
{
    using Json = nlohmann::ordered_json;
    const bool exists = state.semaphore >= 0;
    const bool readable = isReadable(state);
    report.json("keyFile", state.keyFile)
        .json("keyFileExists", state.keyFileExists)
        .json("key", state.keyFileExists ? Json(toHex(static_cast<std::uint32_t>(state.key), 8)) : Json())
        .json("semaphore", exists ? Json(state.semaphore) : Json())
        .json("owner", exists ? Json(nameOfUser(state.rights.owner)) : Json())
        .json("group", exists ? Json(nameOfGroup(state.rights.group)) : Json())
        .json("mode", exists ? Json(inOctal(state.rights.mode)) : Json())
        .json("stays", state.stays)
        .json("condition", rowOf(state.condition).word)
        .json("value", readable ? Json(state.value) : Json())
        .json("lastUser", readable ? Json(state.lastUser) : Json())
        .json("lastUserLives", readable ? Json(isAlive(state.lastUser)) : Json())
        .json("waiting", readable ? Json(state.waiting) : Json());
}

gid_t groupNamed(const std::string& name)
{
    // cppcheck-suppress getgrnamCalled ; authchip has one thread
    const ::group* entry = getgrnam(name.c_str());
    if (entry != nullptr)
        return entry->gr_gid;
    const auto number = parseNumber(name);
    if (number)
        return static_cast<gid_t>(*number);
    throw Failure(ExitStatus::Usage, "make the lock for the group '" + name + "'", "There is no such group",
                  "'getent group' lists the groups; take the one that owns the bus's node ('ls -l /dev/i2c-*').");
}

/// What is not asked for stays as it is; a new lock is for this process's own group.
LockRights wantedRights(const LockState& state, const Arguments& arguments)
{
    LockRights rights = state.rights;
    if (state.semaphore < 0)
        rights = {geteuid(), getegid(), 0660};
    if (!arguments.group.empty())
        rights.group = groupNamed(arguments.group);
    rights.mode = arguments.mode.value_or(rights.mode);
    return rights;
}

/// Throws the Failure that says why there is no seed to be put where a lock stands.
void requireHealthy(const LockState& state)
{
    const auto refuse = [](const std::string& answer, const std::string& next) {
        throw Failure(ExitStatus::Failed, "seed the lock", answer, next);
    };
    const std::string semaphore = "Semaphore " + std::to_string(state.semaphore);
    switch (state.condition) {
    case LockCondition::None:
        return;
    case LockCondition::Unreadable:
        return refuse(semaphore + " is there already and belongs to " + describe(state.rights), "Run as root.");
    case LockCondition::Held:
        return refuse(semaphore + " is there already and held; its last user is process " +
                          describeProcess(state.lastUser),
                      "Wait until that process has given the bus back, or end it; then run this again.");
    case LockCondition::Lost:
        return refuse(semaphore + " is there already, and its token is lost; its last user is process " +
                          describeProcess(state.lastUser),
                      howToBeginAnew(state));
    case LockCondition::TooMany:
        return refuse(semaphore + " is there already and has " + std::to_string(state.value) +
                          " tokens: as many processes get in at once",
                      howToBeginAnew(state));
    case LockCondition::Free:
        break;
    }
    if (!state.stays)
        refuse(semaphore + " is there already, and goes away with the process of the library that has made it",
               howToBeginAnew(state) + " A seed comes before the first of those programs.");
}

const char* seed(const LockState& state, const LockRights& rights)
{
    requireHealthy(state);
    if (state.semaphore < 0) {
        makeLock(state.keyFile, rights);
        return "made";
    }
    if (state.rights == rights)
        return "unchanged";
    setRights(state, rights);
    return "rights changed";
}

} // namespace

ExitStatus lockStatus(const Arguments& arguments, std::ostream& answer)
{
    const LockState state = lookAtLock(lockKeyFile());
    Report report;
    addText(report, state);
    addJson(report, state);
    report.print(arguments.json, answer);
    return ExitStatus::Success;
}

ExitStatus lockSeed(const Arguments& arguments, std::ostream& answer)
{
    const std::string keyFile = lockKeyFile();
    const LockState before = lookAtLock(keyFile);
    const std::string result = seed(before, wantedRights(before, arguments));
    const LockState state = lookAtLock(keyFile);
    Report report;
    report.text("seed", result == "unchanged" ? "was there already; nothing is changed" : result).json("seed", result);
    addText(report, state);
    addJson(report, state);
    report.print(arguments.json, answer);
    return ExitStatus::Success;
}

} // namespace VorelKestrel::Tool
