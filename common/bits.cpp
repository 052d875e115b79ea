#include "common/bits.h"

#include <bitset>
#include <functional>
#include <numeric>

namespace VorelKestrel {

Bytes bigEndian16(std::size_t value)
{
    return {static_cast<std::uint8_t>(value >> kBitsOfAByte), static_cast<std::uint8_t>(value)};
}

std::size_t countDifferingBits(const Bytes& one, const Bytes& other)
{
    return std::inner_product(one.begin(), one.end(), other.begin(), std::size_t{0}, std::plus<>(),
                              [](std::uint8_t left, std::uint8_t right) {
                                  return std::bitset<kBitsOfAByte>(static_cast<unsigned>(left ^ right)).count();
                              });
}

} // namespace VorelKestrel
