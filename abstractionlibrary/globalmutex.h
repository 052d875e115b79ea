#ifndef ABSTRACTIONLIBRARY_GLOBALMUTEX_H
#define ABSTRACTIONLIBRARY_GLOBALMUTEX_H

#include <abstractionlibrary/export.h>

namespace VorelKestrel { namespace AL {

class GlobalMutexPrivate; // defined in the source

/**
 * The one lock of the whole machine: all GlobalMutex objects of all processes stand for the same system semaphore
 * (key "Wexfordmallow", one token). The library's bus transactions take it; a host that takes it as well keeps every
 * process off the authentication chip for that long.
 *
 * The lock counts tokens and does not know its holder: it is not recursive (a second lock() by the holder never
 * returns), and any thread may unlock() what another has locked. An unlock() too many lets two holders in from then
 * on, so every lock() is paired with exactly one unlock().
 *
 * Deliberate: there is no tryLock(), unlike in Mutex; whoever needs the machine's lock waits for it.
 *
 * The semaphore lives no longer than the process that created it: when that process exits in the ordinary way while
 * another holds the token, a third gets in. So let a process that lives on create it first, or one that leaves with
 * _exit(). The key depends on the folder for temporary files (TMPDIR), which must be the same for all.
 *
 * Threads:   any thread of any process may call lock() and unlock(); the destructor comes last and alone. It does not
 *            give back a token that the process still holds.
 * Ownership: keeps no pointer of the caller's.
 * Errors:    none is reported. Where the system refuses the semaphore (another user's, for example), lock() returns
 *            without holding anything. Nothing is thrown but the allocator's exception (by the constructor).
 */
class AUTHCHIPDRIVER_API GlobalMutex
{
public:
    GlobalMutex();
    ~GlobalMutex();
    GlobalMutex(const GlobalMutex&) = delete;
    GlobalMutex& operator=(const GlobalMutex&) = delete;

    /// Waits without limit until the machine's one token is taken.
    void lock();
    /// Gives the token back. Requires: it was taken by a lock() that has not been paired yet.
    void unlock();

private:
    GlobalMutexPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
