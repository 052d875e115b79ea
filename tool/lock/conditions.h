#ifndef TOOL_LOCK_CONDITIONS_H
#define TOOL_LOCK_CONDITIONS_H

#include <string>

#include "tool/lock/systemlock.h"

// What the conditions of the lock mean, and what to do about them: one table, which all commands read.
namespace VorelKestrel::Tool {

/// How to replace a lock that is broken.
constexpr char kBeginAnew[] = "Stop the programs that use the library, run 'authchip lock remove', and then\n"
                              "'authchip lock seed' again.";

/// How to make a lock that all can use.
constexpr char kSeedForAll[] =
    "As root, run 'authchip lock seed --group NAME' at boot, with a group of all who use the bus.";

/// How a user who may not use a lock with these rights gets to share it.
std::string howToShare(const LockRights& rights);

/// How to close a folder in which others can replace the key file.
constexpr char kHowToCloseTheFolder[] =
    "Have root own the folder, with the sticky bit set ('chmod +t'), or name another one in TMPDIR.";

/// The condition in a word or two, for programs.
const char* wordOf(LockCondition condition);
/// The same for people.
const char* describe(LockCondition condition);

/// Why the lock does not do its work, and what to do about it.
struct LockProblem
{
    const char* cause; // for programs; null: there is no problem
    std::string found;
    std::string next;
};

/// For whoever wants to use the lock. A lock that is held has a problem only if it is not released in time.
LockProblem problemOf(const LockState& state);

/// Why a seed cannot take the place of the lock that is there; null cause: it can, or there is none.
LockProblem problemForSeed(const LockState& state);

} // namespace VorelKestrel::Tool

#endif
