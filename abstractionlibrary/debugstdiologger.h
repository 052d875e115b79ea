#ifndef ABSTRACTIONLIBRARY_DEBUGSTDIOLOGGER_H
#define ABSTRACTIONLIBRARY_DEBUGSTDIOLOGGER_H

#include <map>
#include <string>

#include <abstractionlibrary/export.h>

namespace VorelKestrel { namespace AL {

/**
 * The level of one named console log. The logger named "Wexfordmallow" decides which console lines the library writes.
 * They go to std::cout.
 *
 *     level         | console lines that are written
 *     1 and below   | none
 *     2, 3          | DbgError (3 is the level of a new logger)
 *     4, 5          | DbgError, DbgInfo
 *     6 and above   | DbgError, DbgInfo, DbgTrace
 *
 * Threads:   nothing is locked. Call getInstance() before the process starts threads. Setting and reading the level
 *            is not synchronised. Lines of concurrent threads may interleave.
 * Ownership: loggers are never deleted. A pointer from getInstance() is valid until the process ends, also while
 *            static objects are destroyed.
 * Errors:    only the allocator's exception (by getInstance()).
 * Linking:   the program also needs the library's hook: see authchipdriver/dbglog.h.
 * @par Example
 * @snippet reference/debugstdiologger.cpp example
 */
class AUTHCHIPDRIVER_API DebugStdioLogger
{
public:
    /// Creates a logger with level 3. Hosts call getInstance() instead.
    DebugStdioLogger();

    /**
     * Finds a logger, or creates it at its first use.
     *
     * @param name  Any string, also the empty one. "Wexfordmallow" is the library's own logger.
     * @return The logger, never null. It is never deleted.
     */
    static DebugStdioLogger* getInstance(const std::string& name);
    /**
     * The registry of all loggers. For getInstance() only.
     *
     * @return The loggers by name. They are not owned by the map.
     */
    static std::map<std::string, DebugStdioLogger*>& loggerMap();

    /**
     * Tells the level.
     *
     * @return The level that was set last; 3 if none was.
     */
    int getLogLevel();
    /**
     * Sets the level. It takes effect at the next line.
     *
     * @param level  Any value; the table above tells what it means.
     */
    void setLogLevel(int level);

private:
    int m_logLevel;
};

}} // namespace VorelKestrel::AL

#endif
