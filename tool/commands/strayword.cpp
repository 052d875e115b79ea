#include "tool/commands/strayword.h"

#include <algorithm>
#include <iterator>

#include "tool/commands/nearest.h"

namespace VorelKestrel::Tool {
namespace {

bool beginsWith(const std::string& word, const std::string& begin)
{
    return word.compare(0, begin.size(), begin) == 0;
}

/// "-device", which is the option -d with the value "evice".
bool hasOneDashOfTwo(const std::string& word, const std::vector<std::string>& options)
{
    const std::string twice = "-" + word;
    return beginsWith(word, "-") && !beginsWith(word, "--") && word.size() > 4 && // -vvv is an option
           isNear(nearestWord(twice, options), twice);
}

StrayWord explainOption(const std::string& word, const std::vector<std::string>& options)
{
    return {"unknown option '" + word + "'",
            "Did you mean '" + nearestWord(word, options) + "'? '--help' behind the command lists its options."};
}

} // namespace

bool beginsWithADash(const std::string& word)
{
    constexpr const char* kDashes[] = {"\xe2\x80\x90", "\xe2\x80\x91", "\xe2\x80\x92", "\xe2\x80\x93",
                                       "\xe2\x80\x94", "\xe2\x80\x95", "\xe2\x88\x92"}; // in UTF-8
    return std::any_of(std::begin(kDashes), std::end(kDashes),
                       [&](const char* dash) { return beginsWith(word, dash); });
}

StrayWord explainStray(const std::vector<std::string>& words, const std::vector<std::string>& strays,
                       const std::vector<std::string>& options)
{
    const auto dashed = std::find_if(strays.begin(), strays.end(), beginsWithADash);
    if (dashed != strays.end())
        return {"'" + *dashed + "' begins with a dash of a word processor",
                "Type the option again, with '-' of the keyboard."};
    const auto single =
        std::find_if(words.begin(), words.end(), [&](const auto& word) { return hasOneDashOfTwo(word, options); });
    if (single != words.end())
        return {"'" + *single + "' has one dash", "Did you mean '" + nearestWord("-" + *single, options) + "'?"};
    const auto option =
        std::find_if(strays.begin(), strays.end(), [](const std::string& word) { return beginsWith(word, "-"); });
    if (option != strays.end())
        return explainOption(*option, options);
    return {"a word too many", // the word may be a value of a variable: it is not from there
            "No option takes '" + strays.front() +
                "'. --device names the node, --address the chip; 'authchip --help' lists the options."};
}

} // namespace VorelKestrel::Tool
