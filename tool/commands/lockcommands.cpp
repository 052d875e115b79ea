#include "tool/commands/lockcommands.h"

#include <charconv>

#include <grp.h>

#include "common/hex.h"
#include "tool/lock/lockseed.h"
#include "tool/lock/names.h"
#include "tool/lock/systemlock.h"
#include "tool/report/failure.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

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

std::string describeEnd(const LockState& state)
{
    if (!state.isSeeded)
        return "goes away with the process that has made it";
    return state.stays ? "stays, as 'authchip lock seed' has made it" : "not safe: see above";
}

void addText(Report& report, const LockState& state)
{
    report.text("key file", state.keyFile + (state.keyFileExists ? "" : ", which does not exist"));
    if (!state.flaw.empty())
        report.text("not safe", state.flaw);
    if (state.semaphore < 0) {
        report.text("semaphore", describe(state.obstacle));
        return;
    }
    report
        .text("semaphore", std::to_string(state.semaphore) + ", key " + toHex(static_cast<std::uint32_t>(state.key), 8))
        .text("owner", describe(state.rights))
        .text("at an exit", describeEnd(state))
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
        .json("key", state.key != -1 ? Json(toHex(static_cast<std::uint32_t>(state.key), 8)) : Json())
        .json("semaphore", exists ? Json(state.semaphore) : Json())
        .json("owner", exists ? Json(nameOfUser(state.rights.owner)) : Json())
        .json("group", exists ? Json(nameOfGroup(state.rights.group)) : Json())
        .json("mode", exists ? Json(inOctal(state.rights.mode)) : Json())
        .json("stays", state.stays)
        .json("flaw", state.flaw.empty() ? Json() : Json(state.flaw))
        .json("condition", rowOf(state.condition).word)
        .json("value", readable ? Json(state.value) : Json())
        .json("lastUser", readable ? Json(state.lastUser) : Json())
        .json("lastUserLives", readable ? Json(isAlive(state.lastUser)) : Json())
        .json("waiting", readable ? Json(state.waiting) : Json());
}

/// A name, or a number of which no name is needed.
gid_t groupNamed(const std::string& name)
{
    // cppcheck-suppress getgrnamCalled ; authchip has one thread
    const ::group* entry = getgrnam(name.c_str());
    if (entry != nullptr)
        return entry->gr_gid;
    gid_t number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    constexpr auto kNoGroup = static_cast<gid_t>(-1); // what the kernel takes it for
    if (!name.empty() && error == std::errc() && end == name.data() + name.size() && number != kNoGroup)
        return number;
    throw Failure(ExitStatus::Usage, "make the lock for the group '" + name + "'", "There is no such group",
                  "'getent group' lists the groups; take the one that owns the bus's node ('ls -l /dev/i2c-*').");
}

WantedRights wantedRights(const Arguments& arguments)
{
    WantedRights wanted;
    if (arguments.group)
        wanted.group = groupNamed(*arguments.group);
    wanted.mode = arguments.mode;
    return wanted;
}

struct SeedRow
{
    SeedResult result;
    const char* word; // for programs
    const char* text;
};

constexpr SeedRow kSeedResults[] = {
    {SeedResult::Made, "made", "made"},
    {SeedResult::TakenUp, "taken up", "taken up: an earlier seed made it, and its key file was lost"},
    {SeedResult::RightsChanged, "rights changed", "rights changed"},
    {SeedResult::Unchanged, "unchanged", "was there already; nothing is changed"},
};

const SeedRow& rowOf(SeedResult result)
{
    for (const auto& row : kSeedResults) {
        if (row.result == result)
            return row;
    }
    return kSeedResults[0];
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
    const SeedRow& result = rowOf(seedLock(keyFile, wantedRights(arguments)));
    const LockState state = lookAtLock(keyFile);
    Report report;
    report.text("seed", result.text).json("seed", result.word);
    addText(report, state);
    addJson(report, state);
    report.print(arguments.json, answer);
    return ExitStatus::Success;
}

ExitStatus lockRemove(const Arguments& arguments, std::ostream& answer)
{
    const std::string keyFile = lockKeyFile();
    const bool removed = removeLock(keyFile);
    Report report;
    report.text("lock", removed ? "removed" : "there was none").json("removed", removed);
    report.row("key file", "keyFile", keyFile);
    report.print(arguments.json, answer);
    return ExitStatus::Success;
}

} // namespace VorelKestrel::Tool
