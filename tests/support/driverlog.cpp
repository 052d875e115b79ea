#include "tests/support/driverlog.h"

#include <log4cplus/spi/loggingevent.h>

#include <authchipdriver/dbglog.h>

namespace testsupport {

namespace {

DriverLog* g_current = nullptr; // answers the hook

std::string nameOfLevel(log4cplus::LogLevel level)
{
    return log4cplus::getLogLevelManager().toString(level);
}

} // namespace

class DriverLog::Appender : public log4cplus::Appender
{
public:
    explicit Appender(DriverLog& log) : m_log(log) {}
    ~Appender() override { destructorImpl(); }

    void close() override {}

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override { m_log.take(event); }

private:
    DriverLog& m_log;
};

DriverLog::DriverLog(Journal& journal, log4cplus::LogLevel level)
    : m_journal(journal), m_logger(log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("Wexfordmallow")))
{
    g_current = this;
    m_logger.setAdditivity(false);
    m_logger.addAppender(log4cplus::SharedAppenderPtr(new Appender(*this)));
    setLevel(level);
}

DriverLog::~DriverLog()
{
    m_logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
    m_logger.removeAllAppenders();
    g_current = nullptr;
}

void DriverLog::setLevel(log4cplus::LogLevel level)
{
    m_logger.setLogLevel(level);
}

void DriverLog::beforeEachRecord(std::function<void(const std::string&)> action)
{
    m_beforeEachRecord = std::move(action);
}

void DriverLog::answerHookWith(std::function<std::string(const std::string&)> answer)
{
    m_hookAnswer = std::move(answer);
}

std::string DriverLog::callHook(const std::string& prettyFunction, const std::string& component)
{
    if (m_keepsRecords)
        m_hookCalls.push_back({prettyFunction, component});
    std::string answer = m_hookAnswer ? m_hookAnswer(prettyFunction) : "label";
    if (m_spoilsHookArguments) {
        for (const std::string* const argument : {&prettyFunction, &component})
            const_cast<std::string*>(argument)->assign("spoilt");
    }
    return answer;
}

void DriverLog::take(const log4cplus::spi::InternalLoggingEvent& event)
{
    if (m_beforeEachRecord)
        m_beforeEachRecord(event.getMessage());
    if (!m_keepsRecords)
        return;
    m_records.push_back(
        {event.getLogLevel(), event.getMessage(), event.getFunction(), event.getFile(), event.getLine()});
    m_journal.add(Journal::Kind::Line, nameOfLevel(event.getLogLevel()) + " " + event.getMessage());
}

} // namespace testsupport

// The hook that the library needs from its host.
std::string dbglog_scopedFunction(const std::string& prettyFunction, const std::string& component)
{
    using testsupport::g_current;
    return g_current != nullptr ? g_current->callHook(prettyFunction, component) : "";
}
