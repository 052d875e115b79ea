#ifndef SIMULATOR_BYTES_H
#define SIMULATOR_BYTES_H

#include <vector>

#include <abstractionlibrary/types.h>

namespace VorelKestrel::Simulator {

using Bytes = std::vector<AL::U8>;

} // namespace VorelKestrel::Simulator

#endif
