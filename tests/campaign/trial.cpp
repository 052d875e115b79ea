#include "tests/campaign/trial.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <regex>
#include <stdexcept>
#include <sys/wait.h>
#include <typeinfo>
#include <unistd.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/i2c.h>

#include "tests/support/consolelog.h"
#include "tests/support/driverlog.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

namespace campaign {
namespace {

/// The factory's driver, which has no way back to none; as a new process, a script begins without.
AuthChipDriver*& driverOfTheFactory()
{
    void* const member = dlsym(RTLD_DEFAULT, "_ZN12VorelKestrel3ACD15AuthChipFactory24m_authChipDriverInstanceE");
    if (member == nullptr)
        throw std::runtime_error("the library does not export the factory's driver");
    return *static_cast<AuthChipDriver**>(member);
}

/// The host's side of one script.
class Trial
{
public:
    explicit Trial(const Script& script) : m_script(script)
    {
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
        // The entry line of a driver that exists already is not this script's.
        m_log.setLevel(log4cplus::OFF_LOG_LEVEL);
        m_driver.reset(script.protocol30 ? static_cast<AuthChipDriver*>(new AuthChipDriver30) : new AuthChipDriver20B);
        arrange();
        m_journal.clear();
    }

    Behaviour run();
    std::vector<std::string> events() const;

private:
    void arrange();
    int moveBytes();
    int askDriver();
    std::string call();
    template<typename Value, typename Query>
    int query(const char* name, Query query);
    int sign();
    int readCertificate();
    std::string detect();

    const Script& m_script;
    Journal m_journal;
    FakeBus m_bus{m_journal};
    ConsoleLog m_console{m_journal};
    DriverLog m_log{m_journal};
    std::unique_ptr<AuthChipDriver> m_driver;
    Behaviour m_behaviour;
};

/// An action that throws the how-manieth time; never when that is 0.
template<typename... Arguments>
auto throwingAt(int time)
{
    return [time, calls = 0](const Arguments&...) mutable {
        if (++calls == time)
            throw std::runtime_error("the host's");
        return std::string("label");
    };
}

void Trial::arrange()
{
    for (const auto& [reg, content] : m_script.registers)
        m_bus.holds(reg, content);
    m_bus.answersWrites(m_script.writes).answersReads(m_script.reads);
    m_bus.refusesToOpen(m_script.openError).refusesAddress(m_script.addressError);
    m_console.setLevel(m_script.consoleLevel);
    m_log.setLevel(m_script.logLevel);
    m_log.answerHookWith(throwingAt<std::string>(m_script.hookThrowsAt));
    m_log.beforeEachRecord(throwingAt<std::string>(m_script.recordThrowsAt));
}

template<typename Value, typename Query>
int Trial::query(const char* name, Query query)
{
    Value value = kUntouched;
    const auto note = [&] { m_behaviour.outputs = std::string(name) + "=" + std::to_string(value); };
    try {
        const int result = query(value);
        note();
        return result;
    } catch (...) {
        note();
        throw;
    }
}

int Trial::sign()
{
    U8 untouched = 0;
    U8* response = &untouched;
    int length = kUntouched;
    const Bytes challenge = dataOf(m_script);
    const auto note = [&] {
        const char* const kind = response == &untouched ? "untouched" : response == nullptr ? "null" : "block";
        m_behaviour.outputs = std::string("response=") + kind + " length=" + std::to_string(length);
        if (response == nullptr || response == &untouched)
            return;
        m_behaviour.buffer.assign(response, response + length);
        std::free(response);
    };
    try {
        const int result = m_driver->newSignature(challenge.data(), m_script.length,
                                                  m_script.withoutOutput ? nullptr : &response, &length);
        note();
        return result;
    } catch (...) {
        note();
        throw;
    }
}

int Trial::readCertificate()
{
    return query<int>("length", [this](int& length) {
        length = m_script.length;
        return m_driver->getAccessoryCertificateData(m_behaviour.buffer.data(), length);
    });
}

std::string Trial::detect()
{
    m_behaviour.outputs = "none";
    driverOfTheFactory() = nullptr;
    const std::unique_ptr<AuthChipDriver> driver(
        AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, m_script.reg));
    driverOfTheFactory() = nullptr;
    if (driver == nullptr)
        return "null";
    const AuthChipDriver& found = *driver;
    return typeid(found) == typeid(AuthChipDriver30) ? "3.0" : "2.0B";
}

/// The registers and raw transfers, and the bus below them.
int Trial::moveBytes()
{
    AuthChipDriver& driver = *m_driver;
    const U8 reg = static_cast<U8>(m_script.reg);
    const Bytes data = dataOf(m_script);
    U8* const buffer = m_behaviour.buffer.data();
    switch (m_script.operation) {
    case Function::RawWrite:
        return driver.rawWrite(reg, data.data(), m_script.length);
    case Function::RawRead:
        return driver.rawRead(reg, buffer, m_script.length);
    case Function::ReadByte:
        return query<U8>("value", [&](U8& value) { return driver.readByte(m_script.reg, value); });
    case Function::ReadWord:
        return query<U16>("value", [&](U16& value) { return driver.readWord(m_script.reg, value); });
    case Function::ReadDWord:
        return query<U32>("value", [&](U32& value) { return driver.readDWord(m_script.reg, value); });
    case Function::WriteByte:
        return driver.writeByte(m_script.reg, m_script.value);
    case Function::WriteWord:
        return driver.writeWord(m_script.reg, m_script.value);
    case Function::WriteDWord:
        return driver.writeDWord(m_script.reg, m_script.value);
    case Function::I2cRead:
        return i2cRead(reg, m_script.length, buffer);
    case Function::I2cWrite:
        return i2cWrite(reg, m_script.length, data.data());
    default:
        throw std::logic_error("no transfer");
    }
}

/// An operation of a host.
int Trial::askDriver()
{
    AuthChipDriver& driver = *m_driver;
    switch (m_script.operation) {
    case Function::GetDeviceVersion:
        return query<U8>("version", [&](U8& version) { return driver.getDeviceVersion(version); });
    case Function::GetFirmwareVersion:
        return query<U8>("version", [&](U8& version) { return driver.getFirmwareVersion(version); });
    case Function::GetAuthenticationProtocolMajorVersion:
        return query<U8>("version", [&](U8& version) { return driver.getAuthenticationProtocolMajorVersion(version); });
    case Function::GetAuthenticationProtocolMinorVersion:
        return query<U8>("version", [&](U8& version) { return driver.getAuthenticationProtocolMinorVersion(version); });
    case Function::GetDeviceId:
        return query<U32>("id", [&](U32& id) { return driver.getDeviceID(id); });
    case Function::NewSignature:
        return sign();
    case Function::GetAccessoryCertificateDataLength:
        return query<int>("length", [&](int& length) { return driver.getAccessoryCertificateDataLength(length); });
    case Function::GetAccessoryCertificateData:
        return readCertificate();
    case Function::GetChallengeResponseDataMaximumLength:
        return query<int>("length",
                          [&](int& length) { return driver.getChallengeResponseDataMaximumLength(length), 0; });
    case Function::GetChallengeDataMaximumLength:
        return query<int>("length", [&](int& length) { return driver.getChallengeDataMaximumLength(length), 0; });
    default:
        return moveBytes();
    }
}

std::string Trial::call()
{
    errno = 0;
    switch (m_script.operation) {
    case Function::Construct:
        m_script.protocol30 ? static_cast<void>(AuthChipDriver30()) : static_cast<void>(AuthChipDriver20B());
        return "0";
    case Function::Detect:
        return detect();
    default:
        return std::to_string(askDriver());
    }
}

std::vector<std::string> Trial::events() const
{
    static const std::regex version("(Error in i2cRead.* deviceVersion=)[0-9]+");
    std::vector<std::string> events = m_journal.all();
    if (m_script.operation == Function::Detect)
        for (std::string& event : events)
            event = std::regex_replace(event, version, "$1#");
    return events;
}

Behaviour Trial::run()
{
    const bool readsIntoBuffer = m_script.operation == Function::RawRead || m_script.operation == Function::I2cRead ||
                                 m_script.operation == Function::GetAccessoryCertificateData;
    if (readsIntoBuffer)
        m_behaviour.buffer.assign(kRoom, kUntouched);
    try {
        m_behaviour.result = call();
    } catch (const std::runtime_error&) {
        m_behaviour.result = "exception";
    }
    if (m_bus.isLocked())
        m_behaviour.result += ", and the bus is not given back";
    m_behaviour.events = events();
    return std::move(m_behaviour);
}

// The report of a stopped process to its parent, on standard error after the assertion.
const Trial* g_stopping = nullptr;

void tellEvents(int /*signal*/)
{
    for (const std::string& event : g_stopping->events())
        std::fprintf(stderr, "%s\n", event.c_str());
    std::fflush(stderr);
    _exit(EXIT_FAILURE);
}

[[noreturn]] void runUntilStopped(const Script& script, int standardError)
{
    dup2(standardError, STDERR_FILENO);
    Trial trial(script);
    g_stopping = &trial;
    std::signal(SIGABRT, tellEvents);
    trial.run();
    _exit(EXIT_SUCCESS);
}

std::vector<std::string> linesOf(int descriptor)
{
    std::vector<std::string> lines;
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(fdopen(descriptor, "r"), &std::fclose);
    char line[4096];
    while (std::fgets(line, sizeof(line), stream.get()) != nullptr)
        lines.emplace_back(line, std::strlen(line) - 1);
    return lines;
}

} // namespace

Behaviour perform(const Script& script)
{
    return Trial(script).run();
}

Behaviour performToTheEnd(const Script& script)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("there is no pipe");
    const pid_t child = fork();
    if (child == 0)
        runUntilStopped(script, ends[1]);
    close(ends[1]);
    Behaviour behaviour;
    behaviour.events = linesOf(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    behaviour.result = "went on";
    if (!WIFEXITED(status) || WEXITSTATUS(status) != EXIT_FAILURE || behaviour.events.empty())
        return behaviour;
    static const std::regex assertion(".*: Assertion `(.*)' failed\\.");
    std::smatch match;
    if (std::regex_match(behaviour.events.front(), match, assertion))
        behaviour.result = "stopped: " + match.str(1);
    behaviour.events.erase(behaviour.events.begin());
    return behaviour;
}

} // namespace campaign
