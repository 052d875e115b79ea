#ifndef TOOL_REPORT_REPORT_H
#define TOOL_REPORT_REPORT_H

#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/hex.h"

namespace VorelKestrel::Tool {

/**
 * The answer of a command: rows that are printed as a table for people or as one JSON object for programs. The keys
 * are part of the interface; a key is never renamed, and none goes away.
 */
class Report
{
public:
    /// A row for people: what it is, and its value.
    Report& text(std::string label, std::string value);
    /// A row for programs.
    Report& json(const char* key, nlohmann::ordered_json value);
    /// A row for both, with the same words.
    Report& row(std::string label, const char* key, const std::string& value);
    /// The same for bytes: people get as many lines as it takes, programs one string.
    Report& hexRow(std::string label, const char* key, const Bytes& value);

    /// In the way that its reader asked for.
    void print(bool json, std::ostream& out) const;
    void printText(std::ostream& out) const;
    void printJson(std::ostream& out) const;

private:
    struct Row
    {
        std::string label; // empty: the value stands alone
        std::string value; // of one line or more
    };

    std::vector<Row> m_rows;
    nlohmann::ordered_json m_json = nlohmann::ordered_json::object();
};

/// One line of ASCII, whatever bytes the names in it have.
void printInOneLine(const nlohmann::ordered_json& json, std::ostream& out);

} // namespace VorelKestrel::Tool

#endif
