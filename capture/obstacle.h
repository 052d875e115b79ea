#ifndef CAPTURE_OBSTACLE_H
#define CAPTURE_OBSTACLE_H

#include <string>

namespace VorelKestrel::Capture {

/**
 * Why no library can be preloaded into a program, in a sentence without a full stop; empty if nothing speaks against
 * it. A name without a slash is looked for in PATH, as the shell does it; of a script, its interpreter counts. A
 * program that is not there, or is no program, has no obstacle: starting it will say what is wrong.
 */
std::string obstacleToPreloading(const std::string& program);

} // namespace VorelKestrel::Capture

#endif
