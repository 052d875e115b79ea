#ifndef TOOL_REPORT_EXITSTATUS_H
#define TOOL_REPORT_EXITSTATUS_H

namespace VorelKestrel::Tool {

/// What the program tells its caller: the class of what went wrong. The numbers are part of the interface.
enum class ExitStatus
{
    Success = 0,
    Bus = 1,          ///< nobody answers, or the bus failed
    Usage = 2,        ///< the command line asks for something that cannot be
    NotAuthentic = 3, ///< an answer or a certificate proves false
    Environment = 4,  ///< the system does not let the program at the bus or a file
    Chip = 5,         ///< the chip answers, and does not do it
    Lock = 6          ///< the lock between processes
};

} // namespace VorelKestrel::Tool

#endif
