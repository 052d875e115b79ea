#ifndef CAPTURE_OUTPUT_H
#define CAPTURE_OUTPUT_H

#include <iosfwd>
#include <string>

#include "capture/analysis.h"

namespace VorelKestrel::Capture {

// What a capture says, for people, for programs and as a picture. Nothing that a file holds gets out as it is: what is
// printed is words of ours, numbers and hexadecimal digits.

/// A line per message, operation by operation, with what each took.
void printText(const Recording& recording, const Analysis& analysis, std::ostream& out);
/// The same as one JSON object on one line.
void printJson(const Recording& recording, const Analysis& analysis, std::ostream& out);
/// The same as a timeline, in SVG; @p title stands above it.
void drawTimeline(const Recording& recording, const Analysis& analysis, const std::string& title, std::ostream& out);

/// "0.003 s"
std::string inSeconds(std::uint64_t nanoseconds);

} // namespace VorelKestrel::Capture

#endif
