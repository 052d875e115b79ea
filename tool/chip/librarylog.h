#ifndef TOOL_CHIP_LIBRARYLOG_H
#define TOOL_CHIP_LIBRARYLOG_H

#include <memory>
#include <string>

namespace VorelKestrel::Tool {

/// What the drivers said last at ERROR level, and what the system had answered by then.
struct DriverComplaint
{
    std::string text;    // empty: nothing since forget()
    int systemError = 0; // errno at the first such line; 0 is none
};

/**
 * The two logs of the library, as the tool wants them: nothing reaches a stream that was not asked for, and a failed
 * operation can be explained in the driver's own words, which its result code does not carry.
 */
class LibraryLog
{
public:
    /// @p verbosity  how many -v: 0 writes no console line, 1 errors and the version found, 2 and more every access.
    /// @p propertyFile  of log4cplus; empty writes no line of the drivers' log.
    LibraryLog(int verbosity, const std::string& propertyFile);

    /// Clears errno and the complaint; what is heard from now on belongs to the operation that follows.
    void forget();
    DriverComplaint complaint() const { return *m_complaint; }

private:
    const std::shared_ptr<DriverComplaint> m_complaint = std::make_shared<DriverComplaint>(); // the appender writes it
};

} // namespace VorelKestrel::Tool

#endif
