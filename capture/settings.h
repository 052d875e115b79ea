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
 * The descriptor belongs to that process, and is memory with a Tally. The file is an absolute path. Times come from the
 * monotonic clock, so that setting the clock during a capture does not change the pauses.
 */
constexpr char kSettingsVariable[] = "AUTHCHIP_CAPTURE";

/// Counts of all processes of a capture, in shared memory.
struct Tally
{
    std::atomic<AL::U32> processes; // that have loaded the library
    std::atomic<AL::U32> messages;  // that were recorded
    std::atomic<AL::U32> error;     // the first errno because of which a message is missing; 0: none
};

} // namespace VorelKestrel::Capture

#endif
