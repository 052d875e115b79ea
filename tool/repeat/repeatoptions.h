#ifndef TOOL_REPEAT_REPEATOPTIONS_H
#define TOOL_REPEAT_REPEATOPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace VorelKestrel::Tool {

/// How often a command runs, and what is told about it.
struct RepeatOptions
{
    std::optional<std::uint64_t> attempts;    // none, and no time: once, without a summary
    std::optional<std::chrono::seconds> time; // no attempt begins after it
    bool jsonLines = false;
    std::string page;             // a file of HTML; empty is none
    std::chrono::seconds wait{0}; // for the chip, before the first attempt

    bool isWanted() const { return attempts || time; }
};

} // namespace VorelKestrel::Tool

#endif
