#ifndef TOOL_COMMANDS_LOCKREPORT_H
#define TOOL_COMMANDS_LOCKREPORT_H

#include "tool/lock/systemlock.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {

/// Adds everything that is known about the lock, as text and as JSON.
void addLock(Report& report, const LockState& state);

} // namespace VorelKestrel::Tool

#endif
