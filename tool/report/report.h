#ifndef TOOL_REPORT_REPORT_H
#define TOOL_REPORT_REPORT_H

#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/hex.h"

namespace VorelKestrel::Tool {

/**
 * The answer of a command: rows, printed as a table for people or as one JSON object for programs. The keys are part of
 * the interface and are never renamed or removed.
 */
class Report
{
public:
    /// A row for people: label and value.
    Report& text(std::string label, std::string value);
    /// A row for programs.
    Report& json(const char* key, nlohmann::ordered_json value);
    /// A row for both, with the same value.
    Report& row(std::string label, const char* key, const std::string& value);
    /// The same for bytes: several lines for people, one string for programs.
    Report& hexRow(std::string label, const char* key, const Bytes& value);

    /// Prints JSON or text.
    void print(bool json, std::ostream& out) const;
    void printText(std::ostream& out) const;
    void printJson(std::ostream& out) const;

private:
    struct Row
    {
        std::string label; // empty: only the value is printed
        std::string value; // one line or more
    };

    std::vector<Row> m_rows;
    nlohmann::ordered_json m_json = nlohmann::ordered_json::object();
};

/// One line of ASCII, whatever bytes the names in it have.
void printInOneLine(const nlohmann::ordered_json& json, std::ostream& out);

} // namespace VorelKestrel::Tool

#endif
