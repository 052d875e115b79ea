#include "tool/commands/lockreport.h"

#include "common/hex.h"
#include "tool/lock/conditions.h"
#include "tool/lock/inwords.h"

namespace VorelKestrel::Tool {
namespace {

bool isReadable(const LockState& state)
{
    return state.condition != LockCondition::None && state.condition != LockCondition::Unreadable;
}

std::string describeEnd(const LockState& state)
{
    if (!state.isSeeded)
        return "removed when the process that created it exits";
    return state.stays ? "stays, since 'authchip lock seed' created it" : "not safe: see above";
}

void addText(Report& report, const LockState& state)
{
    report.text("key file", state.keyFile + (state.keyFileExists ? "" : ", which does not exist"));
    if (!state.flaw.empty())
        report.text("not safe", state.flaw);
    if (state.semaphore < 0) {
        const std::string reason = reasonOf(state.obstacle);
        report.text("semaphore",
                    reason.empty() ? describe(state.condition) : "none, and none can be created: " + reason);
        return;
    }
    report
        .text("semaphore", std::to_string(state.semaphore) + ", key " + toHex(static_cast<std::uint32_t>(state.key), 8))
        .text("owner", describe(state.rights))
        .text("at an exit", describeEnd(state))
        .text("value", (isReadable(state) ? std::to_string(state.value) + ": " : "") + describe(state.condition));
    if (isReadable(state))
        report.text("last user", describeProcess(state.lastUser)).text("waiting", std::to_string(state.waiting));
}

/// Always adds every key.
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
        .json("condition", wordOf(state.condition))
        .json("value", readable ? Json(state.value) : Json())
        .json("lastUser", readable ? Json(state.lastUser) : Json())
        .json("lastUserLives", readable ? Json(isAlive(state.lastUser)) : Json())
        .json("waiting", readable ? Json(state.waiting) : Json());
}

} // namespace

void addLock(Report& report, const LockState& state)
{
    addText(report, state);
    addJson(report, state);
}

} // namespace VorelKestrel::Tool
