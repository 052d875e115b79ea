#ifndef SIMULATOR_NODE_PRELOADS_H
#define SIMULATOR_NODE_PRELOADS_H

#include <string>

namespace VorelKestrel::Simulator {

/// The path of our preload library, which a process needs to see the node of a UmockdevFront. Throws PreloadError if it
/// is missing.
std::string simulatorsLibrary();
/// The LD_PRELOAD value with which a process sees the node. @p library  the path of our preload library. Throws
/// FrontError if umockdev's is missing.
std::string preloads(const std::string& library);

} // namespace VorelKestrel::Simulator

#endif
