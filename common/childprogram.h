#ifndef COMMON_CHILDPROGRAM_H
#define COMMON_CHILDPROGRAM_H

#include <string>
#include <vector>

#include <csignal>
#include <sys/types.h>

namespace VorelKestrel {

// The exit statuses of a program that stands in for another one, as env and timeout have them; all others are that
// one's.
constexpr int kExitOwnFailure = 125;
constexpr int kExitNotRunnable = 126;
constexpr int kExitNotFound = 127;

/// The exit status that tells of a program that could not be started; @p error is the errno.
int exitStatusOfNotStarted(int error);

/**
 * Runs another program, forwards signals to it, and returns its exit status.
 *
 * The signals stay blocked afterwards: one that comes when the program has ended must not change the result.
 *
 * Requires:  it is made before the first thread of the process, since it takes the signals away from all of them.
 */
class ChildProgram
{
public:
    ChildProgram();
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    /**
     * Starts @p command in this process's environment plus @p variables ("NAME=value") and returns when it has ended:
     * its exit status, 128 + n if signal n killed it. If it cannot be started, a negative errno.
     */
    int run(const std::vector<std::string>& command, const std::vector<std::string>& variables);

private:
    sigset_t m_previous{};
    int m_signals = -1; // a descriptor that delivers them
};

} // namespace VorelKestrel

#endif
