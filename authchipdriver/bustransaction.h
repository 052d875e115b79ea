#ifndef AUTHCHIPDRIVER_BUSTRANSACTION_H
#define AUTHCHIPDRIVER_BUSTRANSACTION_H

#include <authchipdriver/i2c.h>

namespace VorelKestrel { namespace ACD {

/// Holds the bus for one exchange, from construction to the end of the scope.
/// Requires: this thread holds no transaction yet (the lock is not recursive).
class BusTransaction
{
public:
    BusTransaction() : m_started(i2cStartTransaction()) {}
    ~BusTransaction()
    {
        if (!m_started)
            return;
        try {
            i2cStopTransaction();
        } catch (...) {
            // The bus has been given back, or the system refused to take it, which nobody is told. What threw is a
            // console of the host's, or the making of a text about that refusal: no reason to end the process in a
            // destructor.
        }
    }
    BusTransaction(const BusTransaction&) = delete;
    BusTransaction& operator=(const BusTransaction&) = delete;

    bool started() const { return m_started; }

private:
    const bool m_started;
};

}} // namespace VorelKestrel::ACD

#endif
