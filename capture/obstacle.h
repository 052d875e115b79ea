#ifndef CAPTURE_OBSTACLE_H
#define CAPTURE_OBSTACLE_H

#include <string>

namespace VorelKestrel::Capture {

/**
 * Why no library can be preloaded into a program, as a sentence without a full stop; empty if one can. A name without a
 * slash is searched in PATH, like in a shell. For a script the interpreter counts. A missing or invalid program has no
 * obstacle: starting it reports what is wrong.
 */
std::string obstacleToPreloading(const std::string& program);

} // namespace VorelKestrel::Capture

#endif
