#ifndef CAPTURE_ANALYSIS_H
#define CAPTURE_ANALYSIS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capture/recording.h"

namespace VorelKestrel::Capture {

/// A message, explained.
struct Step
{
    const Message* message = nullptr;
    std::optional<AL::U8> reg; // the message's register
    std::string what;          // "write challenge, 32 bytes"
    std::string outcome;       // "refused, busy (3 of 100)"; empty: success
    bool isBusy = false;       // refused while the chip executes a command
    std::vector<std::string> oddities;

    /// Everything on one line.
    std::string line() const;
};

/// Where the time of an operation went, in nanoseconds. The total is the sum of the three parts.
struct Times
{
    std::uint64_t total = 0;
    std::uint64_t bus = 0;     // inside system calls
    std::uint64_t chip = 0;    // from the end of a start command to the first acknowledged message
    std::uint64_t between = 0; // everything else: pauses and the program itself
};

/// Messages of one process and thread that belong together.
struct Operation
{
    std::string name;  // "signature"
    std::size_t begin; // its first step
    std::size_t end;   // after its last step
    std::size_t refusals = 0;
    Times times;
    std::vector<std::string> notes; // "incomplete: ..."; empty: nothing unusual
};

/// The explained messages of a capture, in order.
struct Analysis
{
    std::vector<Step> steps;
    std::vector<Operation> operations;
};

/// The analysis refers to messages of @p recording, which must outlive it.
Analysis analyse(const Recording& recording);

} // namespace VorelKestrel::Capture

#endif
