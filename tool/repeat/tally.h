#ifndef TOOL_REPEAT_TALLY_H
#define TOOL_REPEAT_TALLY_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tool/chip/busmeter.h"
#include "tool/repeat/histogram.h"
#include "tool/repeat/timeline.h"

namespace VorelKestrel::Tool {

/// One attempt and its result.
struct Attempt
{
    std::string cause;              // of its failure; empty: it succeeded
    std::chrono::nanoseconds begin; // since the start of the run
    std::chrono::nanoseconds time;
    std::vector<OperationFigures> operations;
};

/// Times and bus figures of one step, over all attempts.
struct StepFigures
{
    std::string name; // an operation, kRest (the tool itself) or kWhole (the whole attempt)
    std::uint64_t calls = 0;
    std::uint64_t refused = 0;
    std::uint64_t retries = 0;
    int longestRow = 0;
    Histogram times{};
};

constexpr char kRest[] = "rest";
constexpr char kWhole[] = "whole";

/// Adds up attempts. Its size depends on the number of different steps and causes, not on the number of attempts.
class Tally
{
public:
    void add(const Attempt& attempt);

    std::uint64_t attempts() const { return m_whole.calls; }
    std::uint64_t failures() const;
    std::uint64_t successes() const { return attempts() - failures(); }
    const std::map<std::string, std::uint64_t>& causes() const { return m_causes; }
    /// The operations in the order of their first calls, then kRest and kWhole.
    std::vector<const StepFigures*> steps() const;
    const Timeline& timeline() const { return m_timeline; }
    std::chrono::nanoseconds time() const { return m_time; }

private:
    StepFigures& stepOf(const std::string& operation);

    std::map<std::string, std::uint64_t> m_causes;
    std::vector<std::unique_ptr<StepFigures>> m_operations;
    StepFigures m_rest{kRest};
    StepFigures m_whole{kWhole};
    Timeline m_timeline;
    std::chrono::nanoseconds m_time{0}; // from the start of the run to the end of the last attempt
};

} // namespace VorelKestrel::Tool

#endif
