#ifndef CAPTURE_CONVERSATION_H
#define CAPTURE_CONVERSATION_H

#include "capture/record.h"

namespace VorelKestrel::Capture {

/**
 * The state of the messages through one open node: the register of the next read, and how often the current message was
 * refused. Needs no C++ library, like EncodedRecord. It has eight bytes, so that threads can share it in an atomic.
 *
 * Threads: one at a time.
 */
class Conversation
{
public:
    /// Completes a record. Call it in the order in which the messages end.
    void follow(Record& record)
    {
        Facts& facts = record.facts;
        if (!facts.isRead) {
            record.hasRegister = record.data != nullptr && facts.requested > 0;
            record.reg = record.hasRegister ? record.data[0] : AL::U8{0};
        } else {
            record.hasRegister = m_isNamed;
            record.reg = m_named;
        }
        facts.attempt = isRepeated(record) ? m_failures + 1U : 1U;
        remember(record);
    }

private:
    static constexpr AL::U32 kMost = 0xffff; // attempts, or bytes of a message

    static AL::U16 limited(AL::U32 number) { return static_cast<AL::U16>(number < kMost ? number : kMost); }

    bool isRepeated(const Record& record) const
    {
        return m_failures > 0 && record.facts.isRead == m_isRead && record.reg == m_register &&
               limited(record.facts.requested) == m_requested;
    }
    void remember(const Record& record)
    {
        const Facts& facts = record.facts;
        m_failures = facts.failed() || facts.isShort() ? limited(facts.attempt) : AL::U16{0};
        m_requested = limited(facts.requested);
        m_register = record.reg;
        m_isRead = facts.isRead;
        if (!facts.isRead && !facts.failed() && record.hasRegister) {
            m_named = record.reg;
            m_isNamed = true;
        }
    }

    // The last message.
    AL::U16 m_failures = 0; // in a row
    AL::U16 m_requested = 0;
    AL::U8 m_register = 0;
    bool m_isRead = false;
    // The last successful message that named a register.
    bool m_isNamed = false;
    AL::U8 m_named = 0;
};

} // namespace VorelKestrel::Capture

#endif
