#ifndef SIMULATOR_EXITSTATUS_H
#define SIMULATOR_EXITSTATUS_H

#include "common/childprogram.h"

namespace VorelKestrel::Simulator {

// The exit statuses that are not the program's own, as env and timeout have them.
constexpr int kExitUsage = 2;
constexpr int kExitNoNode = kExitOwnFailure;

} // namespace VorelKestrel::Simulator

#endif
