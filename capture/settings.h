#ifndef CAPTURE_SETTINGS_H
#define CAPTURE_SETTINGS_H

#include <atomic>
#include <cstdint>

#include <abstractionlibrary/types.h>

namespace VorelKestrel::Capture {

/**
 * The environment variable that tells the preloaded library what to do:
 *
 *     <redact: 0 or 1> <nanoseconds from the monotonic clock to 1970> <process> <descriptor> <file>
 *
 * The descriptor, of that process, is memory that holds a Tally; the file is the rest, an absolute path. Times are of
 * the monotonic clock, so that setting the clock in the middle of a capture leaves the pauses as they were.
 */
constexpr char kSettingsVariable[] = "AUTHCHIP_CAPTURE";

/// What all processes of a capture count together, in memory that they share.
struct Tally
{
    std::atomic<AL::U32> processes; // that have loaded the library
    std::atomic<AL::U32> messages;  // that were recorded
    std::atomic<AL::U32> error;     // the first errno that kept a message from being recorded; 0 while there is none
};

} // namespace VorelKestrel::Capture

#endif
