#ifndef CAPTURE_OUTPUT_H
#define CAPTURE_OUTPUT_H

#include <iosfwd>
#include <string>

#include "capture/analysis.h"

namespace VorelKestrel::Capture {

// Prints a capture as text, as JSON and as a picture. Nothing from the file is printed unchanged: the output consists
// of our own words, numbers and hexadecimal digits.

/// A line for each message, grouped by operation, with times.
void printText(const Recording& recording, const Analysis& analysis, std::ostream& out);
/// The same as one JSON object on one line.
void printJson(const Recording& recording, const Analysis& analysis, std::ostream& out);
/// The same as a timeline, in SVG; @p title stands above it.
void drawTimeline(const Recording& recording, const Analysis& analysis, const std::string& title, std::ostream& out);

/// "0.003 s"
std::string inSeconds(std::uint64_t nanoseconds);

} // namespace VorelKestrel::Capture

#endif
