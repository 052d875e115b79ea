#ifndef COMMON_PATIENCE_H
#define COMMON_PATIENCE_H

#include <chrono>

// How patient the library is with one message, for those who explain, imitate or measure it.
namespace VorelKestrel {

constexpr int kAttempts = 100;                              // of one message, before it counts as failed
constexpr auto kRetryPause = std::chrono::milliseconds(10); // after a message that was refused

} // namespace VorelKestrel

#endif
