#ifndef ABSTRACTIONLIBRARY_THREAD_H
#define ABSTRACTIONLIBRARY_THREAD_H

#include <abstractionlibrary/export.h>

class KestrelAlMyQThread; // defined in the source, at global scope

namespace VorelKestrel { namespace AL {

/**
 * Base class of a worker thread: derive from it, write run(), call start() and later join().
 *
 *                 | start()          | join()              | isRunning()
 *     not started | runs run() in a  | returns at once     | false
 *                 | new thread       |                     |
 *     running     | no effect        | waits for its end   | true
 *     finished    | runs run() again | returns at once     | false
 *
 * Threads:   start(), isRunning() and join() may be called from any thread; a join() by the worker itself waits for
 *            nothing. What run() shares with other threads is for the derived class to guard.
 *            Requires: a started thread is joined before its object is destroyed, and before the members that its
 *            run() uses are: best by the most derived class's destructor, at the latest.
 * Ownership: keeps no pointer of the caller's.
 * Units:     join() has no time limit.
 * Errors:    none is reported; nothing is thrown but the allocator's exception (by the constructor). An exception must
 *            not leave run().
 */
class AUTHCHIPDRIVER_API Thread
{
public:
    Thread();
    /// Neither stops nor joins the thread.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// What the thread does; called in the new thread.
    virtual void run() = 0;

    /// Starts the thread, with the priority of the calling thread.
    void start();
    /// True from start() until run() has returned.
    bool isRunning() const;
    /// Waits without limit until run() has returned.
    void join();

private:
    KestrelAlMyQThread* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
