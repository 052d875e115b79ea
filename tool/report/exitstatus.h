#ifndef TOOL_REPORT_EXITSTATUS_H
#define TOOL_REPORT_EXITSTATUS_H

namespace VorelKestrel::Tool {

/// What the program tells its caller. The numbers are part of the interface.
enum class ExitStatus
{
    Success = 0,
    Failed = 1, ///< the chip or the bus did not do it, or a file could not be written
    Usage = 2,  ///< the command line asks for something that cannot be
    NotAuthentic = 3
};

} // namespace VorelKestrel::Tool

#endif
