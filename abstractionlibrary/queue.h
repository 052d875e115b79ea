#ifndef ABSTRACTIONLIBRARY_QUEUE_H
#define ABSTRACTIONLIBRARY_QUEUE_H

#include <abstractionlibrary/export.h>

namespace VorelKestrel { namespace AL {

class QueueVoidPrivate; // defined in the source

/**
 * An unbounded first-in-first-out queue of pointers between threads. push() never waits for room; pop() waits for a
 * value and tells how much of its timeout is left.
 *
 * Threads:   any number of threads may push() and pop(). Values leave in the order in which push() took them in, each
 *            exactly once. Requires: no thread is inside pop() or push() when the queue is destroyed.
 * Ownership: the queue never owns what the pointers point to. The destructor drops queued values and does not free
 *            them.
 * Units:     timeouts are milliseconds; 0 does not wait, a negative value waits without limit.
 * Errors:    pop() returns null after a timeout. Only the allocator's exception is thrown (by the constructor, and by
 *            push(), which then has queued nothing).
 * Linking:   the program also needs the library's hook: see authchipdriver/dbglog.h.
 * @par Example
 * @snippet reference/queue.cpp example
 */
class AUTHCHIPDRIVER_API QueueVoid
{
public:
    /// Creates an empty queue.
    QueueVoid();
    /// Drops the queued values. Requires: no thread is inside push() or pop().
    ~QueueVoid();
    QueueVoid(const QueueVoid&) = delete;
    QueueVoid& operator=(const QueueVoid&) = delete;

    /**
     * Appends a value and wakes one waiting pop(). Never waits for room.
     *
     * @param value  The value. Requires: it is not null, or the process stops with the assertion "value".
     */
    void push(void* value);
    /**
     * Takes the oldest value, or waits for one.
     *
     * @param[in,out] timeout  How long to wait, in milliseconds; afterwards what is left of it. A value of 0 or more
     *                         never becomes less than 0. A negative value shrinks by the time waited and stays
     *                         negative, so passing it again still means no limit. The time waited is a difference of
     *                         times of day: a wait across midnight or a change of the system clock leaves a wrong
     *                         value here.
     * @return The value; null if none came in time.
     */
    void* pop(int& timeout);

private:
    // Null; holds the place that the value has in EventVoid.
    void* m_unused __attribute__((unused)) = nullptr;
    QueueVoidPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
