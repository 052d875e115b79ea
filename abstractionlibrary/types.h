#ifndef ABSTRACTIONLIBRARY_TYPES_H
#define ABSTRACTIONLIBRARY_TYPES_H

#include <cstdint>

namespace VorelKestrel { namespace AL {

using U8 = std::uint8_t;   ///< unsigned, 8 bits
using U16 = std::uint16_t; ///< unsigned, 16 bits
using U32 = std::uint32_t; ///< unsigned, 32 bits

}} // namespace VorelKestrel::AL

#endif
