#include "tool/commands/nearest.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace VorelKestrel::Tool {
namespace {

/// The number of letters to add, remove or replace; computed row by row for the prefixes of both words.
std::size_t distance(const std::string& one, const std::string& other)
{
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t replaced = diagonal + (one[i - 1] == other[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row.back();
}

} // namespace

std::string nearestWord(const std::string& word, const std::vector<std::string>& words)
{
    return *std::min_element(words.begin(), words.end(), [&](const std::string& left, const std::string& right) {
        return distance(left, word) < distance(right, word);
    });
}

bool isNear(const std::string& word, const std::string& other)
{
    constexpr std::size_t kFew = 3;
    return distance(word, other) <= kFew;
}

} // namespace VorelKestrel::Tool
