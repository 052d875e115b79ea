#include "abstractionlibrary/debugstdiologger.h"

#include <memory>

namespace VorelKestrel { namespace AL {
namespace {

constexpr int kDefaultLogLevel = 3; // errors only

} // namespace

DebugStdioLogger::DebugStdioLogger() : m_logLevel(kDefaultLogLevel) {}

DebugStdioLogger* DebugStdioLogger::getInstance(const std::string& name)
{
    auto& loggers = loggerMap();
    if (loggers.find(name) == loggers.end()) {
        auto logger = std::make_unique<DebugStdioLogger>();
        loggers[name] = logger.get();
        // Deliberate: never deleted, so that code which runs during static destruction may still log.
        logger.release(); // NOLINT(bugprone-unused-return-value): the registry has the pointer.
    }
    return loggers[name];
}

std::map<std::string, DebugStdioLogger*>& DebugStdioLogger::loggerMap()
{
    // Local, so that it exists whichever source file's static initialisation asks first.
    static std::map<std::string, DebugStdioLogger*> loggers;
    return loggers;
}

int DebugStdioLogger::getLogLevel() // NOLINT(readability-make-member-function-const): the binary interface.
{
    return m_logLevel;
}

void DebugStdioLogger::setLogLevel(int level)
{
    m_logLevel = level;
}

}} // namespace VorelKestrel::AL
