#include "common/numbers.h"

#include <charconv>
#include <string_view>
#include <system_error>

namespace VorelKestrel {

std::optional<std::uint32_t> parseNumber(const std::string& text, std::uint32_t maximum)
{
    std::string_view digits = text;
    const bool isHex = digits.substr(0, 2) == "0x" || digits.substr(0, 2) == "0X";
    if (isHex)
        digits.remove_prefix(2);
    std::uint32_t value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, isHex ? 16 : 10);
    if (error != std::errc() || stop != end || value > maximum)
        return std::nullopt;
    return value;
}

std::string inBytes(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

} // namespace VorelKestrel
