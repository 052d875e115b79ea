#ifndef CAPTURE_ANALYSIS_H
#define CAPTURE_ANALYSIS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capture/recording.h"

namespace VorelKestrel::Capture {

/// A message in the chip's words.
struct Step
{
    const Message* message = nullptr;
    std::optional<AL::U8> reg; // that it is about
    std::string what;          // "write challenge, 32 bytes"
    std::string outcome;       // "refused, busy (3 of 100)"; empty: it got through
    bool isBusy = false;       // refused while the chip works on a command
    std::vector<std::string> oddities;

    /// All of it on one line.
    std::string line() const;
};

/// Where the time of an operation went, in nanoseconds. The three parts make the whole.
struct Times
{
    std::uint64_t total = 0;
    std::uint64_t bus = 0;     // inside system calls
    std::uint64_t chip = 0;    // from the end of a start command to the first message that the chip takes
    std::uint64_t between = 0; // all else: pauses, and what the program does
};

/// Messages of one process and thread that belong together.
struct Operation
{
    std::string name;  // "signature"
    std::size_t begin; // its steps
    std::size_t end;   // behind the last
    std::size_t refusals = 0;
    Times times;
    std::vector<std::string> notes; // "incomplete: ..."; empty: all is as it should be
};

/// What a capture says, in the order of its messages.
struct Analysis
{
    std::vector<Step> steps;
    std::vector<Operation> operations;
};

/// @p recording outlives the analysis, which refers to its messages.
Analysis analyse(const Recording& recording);

} // namespace VorelKestrel::Capture

#endif
