#ifndef ABSTRACTIONLIBRARY_EVENT_H
#define ABSTRACTIONLIBRARY_EVENT_H

#include <abstractionlibrary/export.h>

namespace VorelKestrel { namespace AL {

class EventVoidPrivate; // defined in the source

/**
 * A mailbox with one slot: one thread posts a pointer with set(), another takes it with wait(). While the slot is full,
 * set() refuses a second value; it does not queue it.
 *
 *           | set(v)                   | wait(t)
 *     empty | stores v, true; now full | waits up to t for a value, then null
 *     full  | false; the old value     | the value, at once; now empty
 *           | stays                    |
 *
 * Threads:   any number of threads may call set() and wait(). Each value reaches exactly one waiter; of several set()
 *            calls on an empty slot exactly one succeeds. What was written before set() is visible after wait().
 *            Requires: no thread is inside set() or wait() when the event is destroyed.
 * Ownership: the event never owns what the pointer points to. The destructor drops a pending value and does not free
 *            it. A value that set() refused stays the caller's.
 * Units:     timeouts are milliseconds; 0 does not wait, a negative value waits without limit.
 * Errors:    wait() returns null after a timeout, set() returns false if the slot is full. Only the constructor
 *            throws, the allocator's exception.
 * Linking:   the program also needs the library's hook: see authchipdriver/dbglog.h.
 * @par Example
 * @snippet reference/event.cpp example
 */
class AUTHCHIPDRIVER_API EventVoid
{
public:
    /// Creates an empty event.
    EventVoid();
    /// Drops a pending value. Requires: no thread is inside set() or wait().
    ~EventVoid();
    EventVoid(const EventVoid&) = delete;
    EventVoid& operator=(const EventVoid&) = delete;

    /**
     * Takes the pending value, or waits for one.
     *
     * @param timeout  How long to wait, in milliseconds. 0 does not wait, a negative value waits without limit.
     * @return The value; null if none came in time.
     */
    void* wait(int timeout);
    /**
     * Posts a value. Never waits.
     *
     * @param value  The value. Requires: it is not null, or the process stops with the assertion "value".
     * @return True if the value was stored, false if the slot is full.
     */
    bool set(void* value);

private:
    void* m_value = nullptr;  // null while the slot is empty
    EventVoidPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
