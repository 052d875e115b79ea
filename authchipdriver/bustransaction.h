#ifndef AUTHCHIPDRIVER_BUSTRANSACTION_H
#define AUTHCHIPDRIVER_BUSTRANSACTION_H

#include <exception>
#include <utility>

#include <authchipdriver/i2c.h>

namespace VorelKestrel { namespace ACD {

/// Holds the bus for one exchange, from construction to stop() or the end of the scope.
/// Requires: this thread holds no transaction yet (the lock is not recursive).
class BusTransaction
{
public:
    BusTransaction() : m_started(i2cStartTransaction()) {}
    /**
     * Releases the bus, and may throw, unlike other destructors: when the console of a host throws at the line about
     * the stop, or memory for a text is missing, the exception leaves the operation as one of any other line does. The
     * bus is released by then. Only while another exception is on its way the second one is dropped, because two at
     * once end the process.
     */
    ~BusTransaction() noexcept(false)
    {
        try {
            stop();
        } catch (...) {
            if (std::uncaught_exceptions() == 0)
                throw;
        }
    }
    BusTransaction(const BusTransaction&) = delete;
    BusTransaction& operator=(const BusTransaction&) = delete;

    bool started() const { return m_started; }
    /// Releases the bus before the end of the scope, also when an exception leaves.
    void stop()
    {
        if (std::exchange(m_started, false))
            i2cStopTransaction();
    }

private:
    bool m_started;
};

}} // namespace VorelKestrel::ACD

#endif
