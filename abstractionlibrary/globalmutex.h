#ifndef ABSTRACTIONLIBRARY_GLOBALMUTEX_H
#define ABSTRACTIONLIBRARY_GLOBALMUTEX_H

#include <abstractionlibrary/export.h>

namespace VorelKestrel { namespace AL {

class GlobalMutexPrivate; // defined in the source

/**
 * The one lock of the whole machine. All GlobalMutex objects of all processes share one system semaphore (key
 * "Wexfordmallow", one token). Each bus transaction of the library takes it. A host that holds it keeps every process
 * off the authentication chip.
 *
 * The lock counts tokens and does not know its holder. It is not recursive: a second lock() by the holder never
 * returns. Any thread may unlock() what another has locked. After one unlock() too many, two holders get in at a time,
 * so pair every lock() with exactly one unlock().
 *
 * Deliberate: there is no tryLock(), unlike in Mutex; whoever needs the machine's lock waits for it.
 *
 * The process that created the semaphore removes it at its exit. If another process holds the token at that moment, a
 * third gets in. To prevent it, create the lock at boot with `authchip lock seed`, or let a process create it first
 * that lives on or ends with _exit(). All processes need the same folder for temporary files (TMPDIR), where the key
 * file is.
 *
 * Threads:   any thread of any process may call lock() and unlock(). The destructor comes last and alone. It does not
 *            return a token that the process still holds.
 * Ownership: keeps no pointer of the caller's.
 * Errors:    none is reported. If the system refuses the semaphore (another user's, for example), lock() returns
 *            without holding anything. Only the constructor throws, the allocator's exception.
 * Linking:   the program also needs the library's hook: see authchipdriver/dbglog.h.
 * @par Example
 * @snippet reference/globalmutex.cpp example
 */
class AUTHCHIPDRIVER_API GlobalMutex
{
public:
    /// Opens the machine's lock, or creates it with one token.
    GlobalMutex();
    /// Closes the lock; removes it from the machine if this process created it.
    ~GlobalMutex();
    GlobalMutex(const GlobalMutex&) = delete;
    GlobalMutex& operator=(const GlobalMutex&) = delete;

    /// Takes the machine's one token. Waits for it without limit.
    void lock();
    /// Returns the token. Requires: a lock() took it that no other unlock() has been paired with.
    void unlock();

private:
    GlobalMutexPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
