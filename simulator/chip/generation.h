#ifndef SIMULATOR_CHIP_GENERATION_H
#define SIMULATOR_CHIP_GENERATION_H

#include <abstractionlibrary/types.h>

#include "common/generations.h"

namespace VorelKestrel::Simulator {

/// The generation of a simulated chip. A device version without a driver gets the generation of the next lower version
/// with a driver, or the first generation.
const Generation& generationOf(AL::U8 deviceVersion);

/// The longest certificate that a chip of this generation can hold.
std::size_t certificateMaximumLength(const Generation& generation);

} // namespace VorelKestrel::Simulator

#endif
