#ifndef COMMON_PATIENCE_H
#define COMMON_PATIENCE_H

#include <chrono>

// How long the library keeps trying one message, for code that explains, imitates or measures it. The library has its
// own constants in authchipdriver/i2c_linuxdev.cpp; a test compares the two.
namespace VorelKestrel {

constexpr int kAttempts = 100;                              // of one message, before it counts as failed
constexpr auto kRetryPause = std::chrono::milliseconds(10); // after a message that was refused
constexpr auto kPatience = kAttempts * kRetryPause;         // how long a chip may be busy

} // namespace VorelKestrel

#endif
