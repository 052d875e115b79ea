#ifndef TOOL_LOCK_SYSTEMLOCK_H
#define TOOL_LOCK_SYSTEMLOCK_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "tool/lock/keyfolder.h"
#include "tool/lock/semaphoreset.h"

namespace VorelKestrel::Tool {

/// What the semaphore lets happen.
enum class LockCondition
{
    None,       // there is no semaphore; the next process that uses the library makes one
    Unreadable, // this user may not access it; neither can the library
    Free,
    Held,
    Lost,   // nobody can take it, and nobody lives who could give it back
    TooMany // more than one process gets in at once
};

/// Why no process that comes next can make a lock, so that it goes on without.
enum class LockObstacle
{
    None,
    NoFolder,          // TMPDIR names no folder
    NoDescriptorLeft,  // to open it with
    FolderNotWritable, // this user cannot make a key file in it
    FolderReadOnly,    // nobody can
    FolderFull,        // nor here
    BrokenLink,        // the key file is a symbolic link to nothing
    NoSemaphores,      // the kernel has none, or they are kept from this process
    NoSemaphoreLeft    // the system's limit is reached
};
/// What the error of a folder, or of a file that is made in it, means.
LockObstacle obstacleOf(int error);

/// How many semaphores a set has, by which a seed's differs from the library's.
constexpr unsigned kSemaphoresOfLibrary = 1;
constexpr unsigned kSemaphoresOfSeed = 3;

/// A snapshot of the lock between processes, taken without acquiring it.
struct LockState
{
    std::string keyFile;
    KeyFile file; // what stands there
    bool keyFileExists = false;
    key_t key = -1;
    int semaphore = -1;    // the system's number for it; -1: there is none, and the rest says nothing
    bool isSeeded = false; // the set is one of 'authchip lock seed'
    uid_t creator = 0;     // who can always remove it
    bool stays = false;    // seeded by somebody whom this process trusts, and so is the key file: it outlives its users
    std::string flaw;      // why nobody should rely on it; empty: nothing speaks against it
    LockObstacle obstacle = LockObstacle::None; // only if there is no semaphore
    LockRights rights;
    LockCondition condition = LockCondition::None;
    int value = 0;      // from here on: only if it is readable
    pid_t lastUser = 0; // who changed it last; 0: somebody of another process namespace, or nobody
    int waiting = 0;    // how many wait for a token
};

LockState lookAtLock(const std::string& keyFile);
LockState lookAtLock(const KeyFolder& folder, const std::string& keyFile);

/// The sets that seeds of root or this user have made in this folder and that no key file leads to, of those that this
/// user may read. Sets of other users do not count: anybody could forge one, and root's seed would refuse.
std::vector<SemaphoreSet> findOrphans(const KeyFolder& folder);

/// Whether there is a process of this number that has not ended.
bool isAlive(pid_t process);

/// A token, held until the end of the scope; the kernel gives it back if the process dies.
class LockToken
{
public:
    /// Waits at most @p milliseconds for it.
    LockToken(int semaphore, int milliseconds);
    LockToken(const LockToken&) = delete;
    LockToken& operator=(const LockToken&) = delete;
    ~LockToken();

    bool isHeld() const { return m_error == 0; }
    /// Why it is not: EAGAIN if the time has passed.
    int error() const { return m_error; }

private:
    const int m_semaphore;
    int m_error = 0;
};

} // namespace VorelKestrel::Tool

#endif
