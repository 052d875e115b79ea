#ifndef TOOL_CHIP_LIBRARYLOG_H
#define TOOL_CHIP_LIBRARYLOG_H

#include <memory>
#include <string>

namespace VorelKestrel::Tool {

/// The drivers' ERROR lines since forget(), and errno at the first of them.
struct DriverComplaint
{
    std::string text;    // empty: none
    int systemError = 0; // 0: none
};

/**
 * Sets up the two logs of the library: nothing is printed that was not asked for, and the drivers' ERROR lines are
 * kept, because a result code does not say why an operation failed.
 */
class LibraryLog
{
public:
    /// @p verbosity  number of -v: 0 prints no console line, 1 errors and the device version, 2 and more every access.
    /// @p propertyFile  of log4cplus; empty: the drivers' log is not printed.
    LibraryLog(int verbosity, const std::string& propertyFile);

    /// Clears errno and the complaint, before the next operation.
    void forget();
    DriverComplaint complaint() const { return *m_complaint; }

private:
    const std::shared_ptr<DriverComplaint> m_complaint = std::make_shared<DriverComplaint>(); // written by the appender
};

} // namespace VorelKestrel::Tool

#endif
