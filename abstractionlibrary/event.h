#ifndef ABSTRACTIONLIBRARY_EVENT_H
#define ABSTRACTIONLIBRARY_EVENT_H

#include <abstractionlibrary/export.h>

namespace VorelKestrel { namespace AL {

class EventVoidPrivate; // defined in the source

/**
 * A mailbox with one slot: one thread posts a pointer with set(), another takes it with wait(). A second set() before
 * the value was taken is refused, not queued.
 *
 *           | set(v)                   | wait(t)
 *     empty | stores v, true; now full | waits up to t for a value, then null
 *     full  | false; the old value     | the value, at once; now empty
 *           | stays                    |
 *
 * Threads:   any number of threads may call set() and wait(). Each value reaches exactly one waiter; of several set()
 *            calls on an empty slot exactly one succeeds. What was written before set() is visible after wait().
 *            Requires: no thread is inside set() or wait() when the event is destroyed.
 * Ownership: the event never owns what the pointer points to; a value still pending is dropped by the destructor,
 *            not freed. A value that set() refused stays the caller's.
 * Units:     timeouts are milliseconds; 0 does not wait, a negative value waits without limit.
 * Errors:    a timeout is the result null, a full slot the result false; nothing is thrown but the allocator's
 *            exception (by the constructor).
 */
class AUTHCHIPDRIVER_API EventVoid
{
public:
    EventVoid();
    ~EventVoid();
    EventVoid(const EventVoid&) = delete;
    EventVoid& operator=(const EventVoid&) = delete;

    /// Takes the pending value, waiting up to @p timeout milliseconds for one. Returns null when none came in time.
    void* wait(int timeout);
    /// Posts @p value. Never waits; returns false if the slot is full. Requires: @p value is not null.
    bool set(void* value);

private:
    void* m_value = nullptr;  // null while the slot is empty
    EventVoidPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
