#include "tool/chip/rereading.h"

#include "common/bits.h"
#include "common/hex.h"

namespace VorelKestrel::Tool {

const char* howToMend(const std::string& cause)
{
    if (cause == kBusShared)
        return kStopTheOtherProgram;
    return cause == kBitErrors ? kHowToMendTheBus : nullptr;
}

bool isUnrelated(const Bytes& first, const Bytes& second, std::size_t share)
{
    return countDifferingBits(first, second) > first.size() * kBitsOfAByte / share;
}

Difference explainDifference(const std::string& found, bool isOfAnotherRegister)
{
    const char* cause = isOfAnotherRegister ? kBusShared : kBitErrors;
    return {cause, found + (isOfAnotherRegister ? ", as if another register had been read" : ""), howToMend(cause)};
}

std::optional<Difference> findDifferenceOf(const std::string& what, const Bytes& first, const Bytes& second)
{
    constexpr std::size_t kBitsOfAFlip = 8; // so few bytes have no room for more than a flipped bit in each
    if (first == second)
        return std::nullopt;
    return explainDifference(what + " reads differently each time: 0x" + toHex(first) + ", then 0x" + toHex(second),
                             isUnrelated(first, second, kBitsOfAFlip));
}

} // namespace VorelKestrel::Tool
