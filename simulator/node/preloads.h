#ifndef SIMULATOR_NODE_PRELOADS_H
#define SIMULATOR_NODE_PRELOADS_H

#include <string>

namespace VorelKestrel::Simulator {

/// The library of ours that a process needs to see the node of a UmockdevFront. Throws PreloadError if it is missing.
std::string simulatorsLibrary();
/// The LD_PRELOAD value with which a process sees the node; @p library is a path of that library. Throws FrontError if
/// the other one is missing.
std::string preloads(const std::string& library);

} // namespace VorelKestrel::Simulator

#endif
