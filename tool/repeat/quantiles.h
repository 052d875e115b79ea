#ifndef TOOL_REPEAT_QUANTILES_H
#define TOOL_REPEAT_QUANTILES_H

namespace VorelKestrel::Tool {

struct Quantile
{
    const char* label; // for people
    const char* key;   // for programs
    double share;
};

/// Those that every summary of a step shows, in this order.
constexpr Quantile kQuantiles[] = {
    {"median", "medianMs", 0.5}, {"90 %", "p90Ms", 0.9}, {"99 %", "p99Ms", 0.99}, {"99.9 %", "p999Ms", 0.999}};

} // namespace VorelKestrel::Tool

#endif
