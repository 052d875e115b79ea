#ifndef TOOL_REPEAT_SUMMARY_H
#define TOOL_REPEAT_SUMMARY_H

#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

#include "tool/repeat/tally.h"

// The summary of a run of many attempts, in several forms.
namespace VorelKestrel::Tool {

/// For people: the counts, and a table of the steps.
void printTable(const Tally& tally, std::ostream& out);
/// For programs. Times are milliseconds.
nlohmann::ordered_json jsonOf(const Tally& tally);
/// One attempt. @p number  counts from 1. @p at  the time of its start: "2026-01-31T12:00:00.123Z".
nlohmann::ordered_json jsonOf(const Attempt& attempt, std::uint64_t number, const std::string& at);
/// An HTML page with plots, in one file. @p begin  the time when the run began.
std::string pageOf(const Tally& tally, const std::string& title, const std::string& begin);

} // namespace VorelKestrel::Tool

#endif
