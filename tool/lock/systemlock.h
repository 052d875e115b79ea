#ifndef TOOL_LOCK_SYSTEMLOCK_H
#define TOOL_LOCK_SYSTEMLOCK_H

#include <optional>
#include <string>

#include <sys/types.h>

namespace VorelKestrel::Tool {

/// What the semaphore lets happen.
enum class LockCondition
{
    None,       // there is no semaphore; the next process that uses the library makes one
    Unreadable, // not for this user, nor is it for the library in this user's processes
    Free,
    Held,
    Lost,   // nobody can take it, and nobody lives who could give it back
    TooMany // more than one process gets in at once
};

/// The owner and the rights of a semaphore.
struct LockRights
{
    uid_t owner = 0;
    gid_t group = 0;
    unsigned mode = 0;

    bool operator==(const LockRights& other) const
    {
        return owner == other.owner && group == other.group && mode == other.mode;
    }
};

/// The lock between processes as somebody sees it who takes no part in it.
struct LockState
{
    std::string keyFile;
    bool keyFileExists = false;
    key_t key = -1;
    int semaphore = -1; // the system's number for it; -1: there is none, and the rest says nothing
    bool stays = false; // seeded: no process takes it away at its end
    LockRights rights;
    LockCondition condition = LockCondition::None;
    int value = 0;      // from here on: only if it is readable
    pid_t lastUser = 0; // who changed it last; 0: somebody of another process namespace, or nobody
    int waiting = 0;    // how many wait for a token
};

/// The file that the library makes the semaphore's key from, in this process's directory for temporary files.
std::string lockKeyFile();
/// The same for a process with another TMPDIR; an empty one stands for none.
std::string lockKeyFile(const std::string& temporaryDirectory);

LockState lookAtLock(const std::string& keyFile);

/// Whether there is a process of this number.
bool isAlive(pid_t process);

/**
 * Makes the lock, free, so that it belongs to no process that uses the library: none takes it away at its end.
 *
 * Requires:  this process has not loaded the library, which would have made a lock already.
 * Errors:    Failure; also if the lock has been made by somebody else meanwhile.
 */
void makeLock(const std::string& keyFile, const LockRights& rights);
/// Gives the semaphore of @p state other rights. Throws Failure.
void setRights(const LockState& state, const LockRights& rights);

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
