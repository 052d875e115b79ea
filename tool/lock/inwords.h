#ifndef TOOL_LOCK_INWORDS_H
#define TOOL_LOCK_INWORDS_H

#include <string>

#include <sys/types.h>

#include "tool/lock/systemlock.h"

namespace VorelKestrel::Tool {

// Numbers of the system's in words; a number that has no name stands for itself.

std::string nameOfUser(uid_t user);
std::string nameOfGroup(gid_t group);
/// "0660"
std::string inOctal(unsigned mode);
/// "root, group i2c, mode 0660"
std::string describe(const LockRights& rights);
/// Why no lock can be made: "the system has no semaphore left"; empty if one can.
std::string reasonOf(LockObstacle obstacle);
/// What to do about it.
std::string adviceAbout(LockObstacle obstacle);
/// "1234 (authchip)", "1234 (authchip, stopped)", or what has become of it.
std::string describeProcess(pid_t process);
/// What to do about a process that does not release the lock.
std::string howToEnd(pid_t process);

} // namespace VorelKestrel::Tool

#endif
