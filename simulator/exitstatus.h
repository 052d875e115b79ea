#ifndef SIMULATOR_EXITSTATUS_H
#define SIMULATOR_EXITSTATUS_H

#include "common/childprogram.h"

namespace VorelKestrel::Simulator {

// The exit statuses of authchip-sim itself, like those of env and timeout.
constexpr int kExitUsage = 2;
constexpr int kExitNoNode = kExitOwnFailure;

} // namespace VorelKestrel::Simulator

#endif
