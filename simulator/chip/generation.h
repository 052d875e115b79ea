#ifndef SIMULATOR_CHIP_GENERATION_H
#define SIMULATOR_CHIP_GENERATION_H

#include <abstractionlibrary/types.h>

#include "common/generations.h"

namespace VorelKestrel::Simulator {

/// The generation of a simulated chip. A device version without a driver can be simulated, too: its chip belongs to the
/// generation of the next lower device version that has a driver, or to the first generation.
const Generation& generationOf(AL::U8 deviceVersion);

/// The longest certificate that a chip of this generation can hold.
std::size_t certificateMaximumLength(const Generation& generation);

} // namespace VorelKestrel::Simulator

#endif
