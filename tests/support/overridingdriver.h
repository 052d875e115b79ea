#ifndef TESTS_SUPPORT_OVERRIDINGDRIVER_H
#define TESTS_SUPPORT_OVERRIDINGDRIVER_H

#include <map>
#include <sstream>
#include <string>

#include <authchipdriver/authchipdriver.h>

#include "tests/support/journal.h"

namespace testsupport {

/// A driver of a host that overrides the register helpers. Each call goes into the journal ("readWord 11", "writeByte
/// 10 1") and not to the bus. Registers contain 0 by default.
template<typename Driver>
class OverridingDriver : public Driver
{
public:
    using Error = VorelKestrel::ACD::Error;
    using U8 = VorelKestrel::AL::U8;
    using U16 = VorelKestrel::AL::U16;
    using U32 = VorelKestrel::AL::U32;

    explicit OverridingDriver(Journal& journal) : m_journal(journal) {}

    OverridingDriver& holds(int reg, U32 value)
    {
        m_values[reg] = value;
        return *this;
    }
    /// Sets the result of a call, which is named as in the journal.
    OverridingDriver& answers(const std::string& call, Error result)
    {
        m_results[call] = result;
        return *this;
    }

    Error readByte(int reg, U8& value) override { return read("readByte", reg, value); }
    Error readWord(int reg, U16& value) override { return read("readWord", reg, value); }
    Error readDWord(int reg, U32& value) override { return read("readDWord", reg, value); }
    Error writeByte(int reg, int value) override { return write("writeByte", reg, value); }
    Error writeWord(int reg, int value) override { return write("writeWord", reg, value); }
    Error writeDWord(int reg, int value) override { return write("writeDWord", reg, value); }

private:
    template<typename Value>
    Error read(const char* name, int reg, Value& value)
    {
        value = static_cast<Value>(m_values[reg]);
        std::ostringstream call;
        call << name << " " << std::hex << reg;
        return take(call.str());
    }
    Error write(const char* name, int reg, int value)
    {
        std::ostringstream call;
        call << name << " " << std::hex << reg << " " << std::dec << value;
        return take(call.str());
    }
    Error take(const std::string& call)
    {
        m_journal.add(Journal::Kind::Call, call);
        const auto result = m_results.find(call);
        return result != m_results.end() ? result->second : VorelKestrel::ACD::Success;
    }

    Journal& m_journal;
    std::map<int, U32> m_values;
    std::map<std::string, Error> m_results;
};

} // namespace testsupport

#endif
