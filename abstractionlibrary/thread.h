#ifndef ABSTRACTIONLIBRARY_THREAD_H
#define ABSTRACTIONLIBRARY_THREAD_H

#include <abstractionlibrary/export.h>

class KestrelAlMyQThread; // defined in the source, at global scope

namespace VorelKestrel { namespace AL {

/**
 * Base class of a worker thread: derive from it, override run(), call start() and later join().
 *
 *                 | start()          | join()              | isRunning()
 *     not started | runs run() in a  | returns at once     | false
 *                 | new thread       |                     |
 *     running     | no effect        | waits for its end   | true
 *     finished    | runs run() again | returns at once     | false
 *
 * Threads:   any thread may call start(), isRunning() and join(). A join() by the worker itself returns at once. The
 *            derived class guards what run() shares with other threads.
 *            Requires: a started thread is joined before the members that its run() uses are destroyed. The
 *            destructor of the most derived class is the last place for it.
 * Ownership: keeps no pointer of the caller's.
 * Units:     join() has no time limit.
 * Errors:    none is reported. Only the constructor throws, the allocator's exception. An exception must not leave
 *            run().
 * Linking:   the program also needs the library's hook: see authchipdriver/dbglog.h.
 * @par Example
 * @snippet reference/thread.cpp example
 */
class AUTHCHIPDRIVER_API Thread
{
public:
    /// Creates a thread that is not started yet.
    Thread();
    /// Neither stops nor joins the thread.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// What the thread does; called in the new thread.
    virtual void run() = 0;

    /// Starts the thread, with the priority of the calling thread.
    void start();
    /**
     * Tells whether the thread runs.
     *
     * @return True from start() until run() has returned.
     */
    bool isRunning() const;
    /// Waits without limit until run() has returned.
    void join();

private:
    KestrelAlMyQThread* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
