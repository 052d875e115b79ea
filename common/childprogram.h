#ifndef COMMON_CHILDPROGRAM_H
#define COMMON_CHILDPROGRAM_H

#include <string>
#include <vector>

#include <csignal>
#include <sys/types.h>

namespace VorelKestrel {

// The exit statuses of a program that runs another one, like those of env and timeout. All others come from the other
// program.
constexpr int kExitOwnFailure = 125;
constexpr int kExitNotRunnable = 126;
constexpr int kExitNotFound = 127;

/// The exit status for a program that could not be started because of the errno @p error.
int exitStatusOfNotStarted(int error);

/**
 * Runs another program, forwards signals to it, and returns its exit status.
 *
 * The signals stay blocked afterwards, so that a signal after the program's end does not change the result.
 *
 * Requires:  created before the first thread of the process, because all threads must block the signals.
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
