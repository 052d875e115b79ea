#include "common/hex.h"

#include <charconv>
#include <cstdio>
#include <string_view>
#include <system_error>

namespace VorelKestrel {
namespace {

constexpr char kDigits[] = "0123456789abcdef";
constexpr int kLargestNumber = 0xffff;

std::optional<int> digitValue(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return std::nullopt;
}

bool isSeparator(char character)
{
    return character == ' ' || character == ':' || character == '\n';
}

} // namespace

std::string toHex(const Bytes& bytes)
{
    std::string text;
    text.reserve(2 * bytes.size());
    for (const auto byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xfU];
    }
    return text;
}

std::string toHex(std::uint32_t value, int digits)
{
    char text[16];
    const int length = std::snprintf(text, sizeof(text), "0x%0*x", digits, static_cast<unsigned>(value));
    return {text, static_cast<std::size_t>(length)};
}

std::optional<Bytes> fromHex(const std::string& text)
{
    Bytes bytes;
    constexpr int kNone = -1;
    int high = kNone; // the first digit of a byte whose second is awaited
    for (const char character : text) {
        if (high == kNone && isSeparator(character))
            continue;
        const auto digit = digitValue(character);
        if (!digit)
            return std::nullopt;
        if (high == kNone) {
            high = *digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + *digit));
            high = kNone;
        }
    }
    if (high != kNone)
        return std::nullopt;
    return bytes;
}

std::optional<int> parseNumber(const std::string& text)
{
    std::string_view digits = text;
    const bool isHex = digits.substr(0, 2) == "0x" || digits.substr(0, 2) == "0X";
    if (isHex)
        digits.remove_prefix(2);
    int value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, isHex ? 16 : 10);
    if (error != std::errc() || stop != end || value < 0 || value > kLargestNumber)
        return std::nullopt;
    return value;
}

} // namespace VorelKestrel
