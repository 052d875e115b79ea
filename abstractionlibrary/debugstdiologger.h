#ifndef ABSTRACTIONLIBRARY_DEBUGSTDIOLOGGER_H
#define ABSTRACTIONLIBRARY_DEBUGSTDIOLOGGER_H

#include <map>
#include <string>

#include <abstractionlibrary/export.h>

namespace VorelKestrel { namespace AL {

/**
 * The level of one named console log. All console lines of the library, which go to std::cout, are governed by the
 * logger named "Wexfordmallow"; a host turns them up or down with
 * `DebugStdioLogger::getInstance("Wexfordmallow")->setLogLevel(6)`.
 *
 *     level         | console lines that are written
 *     1 and below   | none
 *     2, 3          | DbgError (3 is the level of a new logger)
 *     4, 5          | DbgError, DbgInfo
 *     6 and above   | DbgError, DbgInfo, DbgTrace
 *
 * Threads:   nothing is locked. Call getInstance() before the process starts threads; a level that one thread sets
 *            is read by the others without synchronisation. Lines of concurrent threads may interleave.
 * Ownership: the registry owns nothing and loggers are never deleted, so a pointer from getInstance() stays valid
 *            until the process ends, also while static objects are being destroyed.
 * Errors:    none but the allocator's exception (by getInstance()).
 */
class AUTHCHIPDRIVER_API DebugStdioLogger
{
public:
    DebugStdioLogger();

    /// Returns the logger of that name (any string, the empty one too), made on first use; never null.
    static DebugStdioLogger* getInstance(const std::string& name);
    /// The registry of all loggers by name. For getInstance() only.
    static std::map<std::string, DebugStdioLogger*>& loggerMap();

    /// Returns the level as it was set; 3 before that.
    int getLogLevel();
    /// Sets the level, any value, from the next line on.
    void setLogLevel(int level);

private:
    int m_logLevel;
};

}} // namespace VorelKestrel::AL

#endif
