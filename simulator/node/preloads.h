#ifndef SIMULATOR_NODE_PRELOADS_H
#define SIMULATOR_NODE_PRELOADS_H

#include <string>

namespace VorelKestrel::Simulator {

/// What LD_PRELOAD has to be for a process that shall see the node of a UmockdevFront. Throws FrontError or PreloadError if a library
/// is missing.
std::string preloads();

} // namespace VorelKestrel::Simulator

#endif
