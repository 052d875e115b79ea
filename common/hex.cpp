#include "common/hex.h"

#include <cstdio>

namespace VorelKestrel {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

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
    int high = kNone; // the first digit of a byte, until the second one
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

} // namespace VorelKestrel
