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
 * Ownership: the queue never owns what the pointers point to; values still queued are dropped by the destructor, not
 *            freed.
 * Units:     timeouts are milliseconds; 0 does not wait, a negative value waits without limit.
 * Errors:    a timeout is the result null; nothing is thrown but the allocator's exception (by the constructor and by
 *            push(), which then has queued nothing).
 */
class AUTHCHIPDRIVER_API QueueVoid
{
public:
    QueueVoid();
    ~QueueVoid();
    QueueVoid(const QueueVoid&) = delete;
    QueueVoid& operator=(const QueueVoid&) = delete;

    /// Appends @p value and wakes one waiting pop(). Requires: @p value is not null.
    void push(void* value);
    /**
     * Takes the oldest value, waiting up to @p timeout milliseconds for one. Returns null when none came in time.
     *
     * @param[in,out] timeout  Afterwards what is left of it: never less than 0 if it was 0 or more; a negative timeout
     *                         shrinks by the time waited and stays negative, so that passing it again still means no
     *                         limit. The time waited is a difference of times of day: a wait across midnight or a
     *                         change of the system clock leaves a wrong value here.
     */
    void* pop(int& timeout);

private:
    // Null; holds the place that the value has in EventVoid.
    void* m_unused __attribute__((unused)) = nullptr;
    QueueVoidPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
