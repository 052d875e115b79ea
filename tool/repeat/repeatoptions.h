#ifndef TOOL_REPEAT_REPEATOPTIONS_H
#define TOOL_REPEAT_REPEATOPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace VorelKestrel::Tool {

/// How often a command runs, and what is reported about it.
struct RepeatOptions
{
    std::optional<std::uint64_t> attempts;    // neither this nor time: once, without a summary
    std::optional<std::chrono::seconds> time; // no attempt begins after this time
    bool jsonLines = false;
    std::string page;             // an HTML file; empty: none
    std::chrono::seconds wait{0}; // for the chip, before the first attempt

    bool isWanted() const { return attempts || time; }
};

} // namespace VorelKestrel::Tool

#endif
