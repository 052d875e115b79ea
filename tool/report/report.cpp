#include "tool/report/report.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "common/escaped.h"
#include "tool/report/indented.h"

namespace VorelKestrel::Tool {

Report& Report::text(std::string label, std::string value)
{
    m_rows.push_back({std::move(label), std::move(value)});
    return *this;
}

Report& Report::json(const char* key, nlohmann::ordered_json value)
{
    m_json[key] = std::move(value);
    return *this;
}

Report& Report::row(std::string label, const char* key, const std::string& value)
{
    return text(std::move(label), value).json(key, value);
}

Report& Report::hexRow(std::string label, const char* key, const Bytes& value)
{
    constexpr std::size_t kDigitsInLine = 64;
    const std::string digits = toHex(value);
    std::string lines;
    for (std::size_t start = 0; start < digits.size(); start += kDigitsInLine)
        lines += (start > 0 ? "\n" : "") + digits.substr(start, kDigitsInLine);
    return text(std::move(label), lines).json(key, digits);
}

void Report::print(bool json, std::ostream& out) const
{
    if (json)
        printJson(out);
    else
        printText(out);
}

void Report::printText(std::ostream& out) const
{
    constexpr std::size_t kGap = 2;
    std::size_t width = 0; // of the column of labels; 0 if no row has a label
    for (const auto& row : m_rows)
        width = std::max(width, row.label.empty() ? 0 : row.label.size() + kGap);
    for (const auto& row : m_rows)
        out << row.label << std::string(width - row.label.size(), ' ') << indented(escapedLines(row.value), width)
            << '\n';
}

void Report::printJson(std::ostream& out) const
{
    printInOneLine(m_json, out);
}

void printInOneLine(const nlohmann::ordered_json& json, std::ostream& out)
{
    constexpr bool kAsciiOnly = true; // so that no character controls a terminal
    constexpr int kInOneLine = -1;
    // Bytes that are not UTF-8, for example in file names, become U+FFFD.
    out << json.dump(kInOneLine, ' ', kAsciiOnly, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

} // namespace VorelKestrel::Tool
