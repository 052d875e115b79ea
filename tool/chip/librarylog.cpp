#include "tool/chip/librarylog.h"

#include <cerrno>
#include <utility>

#include <log4cplus/appender.h>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <abstractionlibrary/debugstdiologger.h>

#include "authchipdriver/loggername.h"

namespace VorelKestrel::Tool {
namespace {

/// Collects the drivers' ERROR lines. The first of an operation names the cause, the later ones its effects.
class ComplaintAppender : public log4cplus::Appender
{
public:
    explicit ComplaintAppender(std::shared_ptr<DriverComplaint> complaint) : m_complaint(std::move(complaint))
    {
        setThreshold(log4cplus::ERROR_LOG_LEVEL);
    }
    ~ComplaintAppender() override { destructorImpl(); }
    ComplaintAppender(const ComplaintAppender&) = delete;
    ComplaintAppender& operator=(const ComplaintAppender&) = delete;

    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        if (m_complaint->text.empty())
            m_complaint->systemError = errno;
        else
            m_complaint->text += "; ";
        m_complaint->text += event.getMessage();
    }

private:
    std::shared_ptr<DriverComplaint> m_complaint;
};

int consoleLevel(int verbosity)
{
    constexpr int kSilent = 0;
    constexpr int kErrorsAndVersion = 4;
    constexpr int kEverything = 6;
    if (verbosity >= 2)
        return kEverything;
    return verbosity == 1 ? kErrorsAndVersion : kSilent;
}

} // namespace

LibraryLog::LibraryLog(int verbosity, const std::string& propertyFile)
{
    AL::DebugStdioLogger::getInstance(ACD::kLoggerName)->setLogLevel(consoleLevel(verbosity));

    auto logger = log4cplus::Logger::getInstance(ACD::kLoggerName);
    if (propertyFile.empty()) {
        logger.setLogLevel(log4cplus::ERROR_LOG_LEVEL);
        logger.setAdditivity(false); // the root logger has no appender and would warn
    } else {
        log4cplus::PropertyConfigurator(propertyFile).configure();
    }
    logger.addAppender(log4cplus::SharedAppenderPtr(
        new ComplaintAppender(m_complaint))); // last, because the configuration removes appenders
}

void LibraryLog::forget()
{
    *m_complaint = DriverComplaint();
    errno = 0;
}

} // namespace VorelKestrel::Tool
