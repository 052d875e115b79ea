#ifndef COMMON_BITS_H
#define COMMON_BITS_H

#include <cstddef>

#include "common/bytes.h"

namespace VorelKestrel {

constexpr unsigned kBitsOfAByte = 8;

/// A number of 16 bits as the chip's registers hold it.
Bytes bigEndian16(std::size_t value);

/// In how many bits they differ. Requires: the same length.
std::size_t countDifferingBits(const Bytes& one, const Bytes& other);

} // namespace VorelKestrel

#endif
