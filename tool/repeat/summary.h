#ifndef TOOL_REPEAT_SUMMARY_H
#define TOOL_REPEAT_SUMMARY_H

#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

#include "tool/repeat/tally.h"

// What a run of many attempts is told in.
namespace VorelKestrel::Tool {

/// For people: the counts, and a table of the steps.
void printTable(const Tally& tally, std::ostream& out);
/// For programs. Times are milliseconds.
nlohmann::ordered_json jsonOf(const Tally& tally);
/// One attempt, @p number from 1 on; @p at is the time of its start: "2026-01-31T12:00:00.123Z".
nlohmann::ordered_json jsonOf(const Attempt& attempt, std::uint64_t number, const std::string& at);
/// A page of HTML with plots, which needs nothing but itself.
std::string pageOf(const Tally& tally, const std::string& title);

} // namespace VorelKestrel::Tool

#endif
