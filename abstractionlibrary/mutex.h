#ifndef ABSTRACTIONLIBRARY_MUTEX_H
#define ABSTRACTIONLIBRARY_MUTEX_H

#include <abstractionlibrary/export.h>

namespace VorelKestrel { namespace AL {

class MutexPrivate; // defined in the source

/**
 * A lock between the threads of one process. It is not recursive: a second lock() by its holder never returns.
 *
 *              | lock()               | tryLock()     | unlock()
 *     unlocked | locked               | locked, true  | Requires: locked
 *     locked   | waits until unlocked | locked, false | unlocked
 *
 * Threads:   any thread may call any operation; the destructor comes last and alone, on an unlocked mutex.
 * Ownership: keeps no pointer of the caller's.
 * Errors:    only the constructor throws, the allocator's exception.
 * Linking:   the program also needs the library's hook: see authchipdriver/dbglog.h.
 * @par Example
 * @snippet reference/mutex.cpp example
 */
class AUTHCHIPDRIVER_API Mutex
{
public:
    /// Creates an unlocked mutex.
    Mutex();
    /// Requires: the mutex is unlocked.
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Takes the mutex. Waits for it without limit.
    void lock();
    /**
     * Takes the mutex if it is free. Never waits.
     *
     * @return True if the mutex was taken, false if another has it.
     */
    bool tryLock();
    /// Releases the mutex. Requires: it is locked.
    void unlock();

private:
    MutexPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
