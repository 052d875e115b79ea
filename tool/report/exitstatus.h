#ifndef TOOL_REPORT_EXITSTATUS_H
#define TOOL_REPORT_EXITSTATUS_H

namespace VorelKestrel::Tool {

/// The exit status: the kind of failure. The numbers are part of the interface.
enum class ExitStatus
{
    Success = 0,
    Bus = 1,          ///< no device answers, or the bus failed
    Usage = 2,        ///< the command line is wrong
    NotAuthentic = 3, ///< a signature or certificate failed verification
    Environment = 4,  ///< the system refused access to the bus or a file
    Chip = 5,         ///< the chip answers, but failed the operation
    Lock = 6          ///< the lock between processes
};

} // namespace VorelKestrel::Tool

#endif
