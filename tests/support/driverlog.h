#ifndef TESTS_SUPPORT_DRIVERLOG_H
#define TESTS_SUPPORT_DRIVERLOG_H

#include <functional>
#include <string>
#include <vector>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>

#include "tests/support/journal.h"

namespace testsupport {

/**
 * The host's side of the drivers' log. During its lifetime, writes the records of the log4cplus logger "Wexfordmallow"
 * into the journal as "TRACE Enter label: ", and answers the hook.
 */
class DriverLog
{
public:
    struct Record
    {
        log4cplus::LogLevel level;
        std::string message;
        std::string function;
        std::string file;
        int line;
    };
    struct HookCall
    {
        std::string prettyFunction;
        std::string component;
    };

    /// Everything at @p level and above is recorded.
    explicit DriverLog(Journal& journal, log4cplus::LogLevel level = log4cplus::DEBUG_LOG_LEVEL);
    ~DriverLog();
    DriverLog(const DriverLog&) = delete;
    DriverLog& operator=(const DriverLog&) = delete;

    void setLevel(log4cplus::LogLevel level);
    /// From now on answers records and hook calls without storing them, so that no memory grows.
    void keepNothing() { m_keepsRecords = false; }
    /// Runs @p action before each record is stored; it may throw.
    void beforeEachRecord(std::function<void(const std::string& message)> action);
    /// Sets the answer of the hook; "label" by default.
    void answerHookWith(std::function<std::string(const std::string& prettyFunction)> answer);

    /// The hook then overwrites its arguments after it has stored them.
    void spoilHookArguments() { m_spoilsHookArguments = true; }

    const std::vector<Record>& records() const { return m_records; }
    const std::vector<HookCall>& hookCalls() const { return m_hookCalls; }
    std::string callHook(const std::string& prettyFunction, const std::string& component);

private:
    class Appender;

    void take(const log4cplus::spi::InternalLoggingEvent& event);

    Journal& m_journal;
    bool m_keepsRecords = true;
    bool m_spoilsHookArguments = false;
    log4cplus::Logger m_logger;
    std::vector<Record> m_records;
    std::vector<HookCall> m_hookCalls;
    std::function<void(const std::string&)> m_beforeEachRecord;
    std::function<std::string(const std::string&)> m_hookAnswer;
};

} // namespace testsupport

#endif
