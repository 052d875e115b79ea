#include "common/escaped.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace VorelKestrel {
namespace {

/// The first byte of a UTF-8 character, and what it implies.
struct Form
{
    unsigned mask;
    unsigned lead;
    std::size_t length;
    std::uint32_t smallest; // smaller ones must use a shorter form
};

constexpr Form kForms[] = {
    {0x80, 0x00, 1, 0},
    {0xe0, 0xc0, 2, 0x80},
    {0xf0, 0xe0, 3, 0x800},
    {0xf8, 0xf0, 4, 0x10000},
};

struct Range
{
    std::uint32_t first;
    std::uint32_t last;
};

constexpr Range kNotShown[] = {
    {0x00, 0x1f},     {0x7f, 0x9f},           // control characters
    {0x61c, 0x61c},   {0x200b, 0x200f},       // zero-width and direction marks
    {0x2028, 0x202e}, {0x2060, 0x206f},       // line separators, direction changes
    {0xd800, 0xdfff}, {0xfeff, 0xfeff},       // surrogates, byte order mark
    {0xfff9, 0xfffb}, {0x110000, 0xffffffff}, // annotations, beyond Unicode
};

struct Character
{
    std::size_t length; // in bytes
    bool isShown;
};

Character characterAt(const std::string& text, std::size_t start)
{
    constexpr Character kNone = {1, false};
    const auto byteAt = [&](std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U; };
    for (const Form& form : kForms) {
        if ((byteAt(start) & form.mask) != form.lead)
            continue;
        std::uint32_t value = byteAt(start) & ~form.mask;
        for (std::size_t next = 1; next < form.length; ++next) {
            if ((byteAt(start + next) & 0xc0U) != 0x80U)
                return kNone;
            value = value << 6U | (byteAt(start + next) & 0x3fU);
        }
        if (value < form.smallest)
            return kNone;
        for (const Range& range : kNotShown) {
            if (value >= range.first && value <= range.last)
                return {form.length, false};
        }
        return {form.length, true};
    }
    return kNone;
}

std::string inHex(const std::string& bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char digits[5];
        std::snprintf(digits, sizeof(digits), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += digits;
    }
    return text;
}

std::string escapedBut(char kept, const std::string& text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = characterAt(text, at);
        const std::string bytes = text.substr(at, character.length);
        const bool stays = character.isShown || (kept != '\0' && text[at] == kept);
        result += stays ? bytes : inHex(bytes);
        at += character.length;
    }
    return result;
}

} // namespace

std::string escaped(const std::string& text)
{
    return escapedBut('\0', text);
}

std::string escapedLines(const std::string& text)
{
    return escapedBut('\n', text);
}

} // namespace VorelKestrel
