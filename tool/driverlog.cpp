#include "tool/driverlog.h"

#include <cerrno>

#include <log4cplus/appender.h>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <abstractionlibrary/debugstdiologger.h>

#include "authchipdriver/loggername.h"

namespace VorelKestrel::Tool {
namespace {

DriverComplaint g_complaint;

/// Listens to the drivers' ERROR lines. The first of an operation names the cause, the later ones what came of it.
class ComplaintAppender : public log4cplus::Appender
{
public:
    ComplaintAppender() { setThreshold(log4cplus::ERROR_LOG_LEVEL); }
    ~ComplaintAppender() override { destructorImpl(); }
    ComplaintAppender(const ComplaintAppender&) = delete;
    ComplaintAppender& operator=(const ComplaintAppender&) = delete;

    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        if (g_complaint.text.empty())
            g_complaint.systemError = errno;
        else
            g_complaint.text += "; ";
        g_complaint.text += event.getMessage();
    }
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

DriverLog::DriverLog(int verbosity, const std::string& propertyFile)
{
    AL::DebugStdioLogger::getInstance(ACD::kLoggerName)->setLogLevel(consoleLevel(verbosity));

    auto logger = log4cplus::Logger::getInstance(ACD::kLoggerName);
    if (propertyFile.empty()) {
        logger.setLogLevel(log4cplus::ERROR_LOG_LEVEL);
        logger.setAdditivity(false); // the root logger has no appender, and would say so
    } else {
        log4cplus::PropertyConfigurator(propertyFile).configure();
    }
    logger.addAppender(log4cplus::SharedAppenderPtr(new ComplaintAppender)); // last: a configuration removes appenders
}

void DriverLog::forget()
{
    g_complaint = DriverComplaint();
    errno = 0;
}

DriverComplaint DriverLog::complaint() const
{
    return g_complaint;
}

} // namespace VorelKestrel::Tool
