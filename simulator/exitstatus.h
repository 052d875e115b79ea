#ifndef SIMULATOR_EXITSTATUS_H
#define SIMULATOR_EXITSTATUS_H

namespace VorelKestrel::Simulator {

// The exit statuses that are not the program's own, as env and timeout have them.
constexpr int kExitUsage = 2;
constexpr int kExitNoNode = 125;
constexpr int kExitNotRunnable = 126;
constexpr int kExitNotFound = 127;

} // namespace VorelKestrel::Simulator

#endif
