#ifndef COMMON_BYTES_H
#define COMMON_BYTES_H

#include <cstdint>
#include <vector>

namespace VorelKestrel {

using Bytes = std::vector<std::uint8_t>;

} // namespace VorelKestrel

#endif
