#include "common/childprogram.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace VorelKestrel {
namespace {

constexpr int kPassedOn[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGWINCH};

/// The signal state for the program: this process's earlier mask, and default handlers.
class SpawnAttributes
{
public:
    explicit SpawnAttributes(const sigset_t& mask)
    {
        posix_spawnattr_init(&m_attributes);
        posix_spawnattr_setsigmask(&m_attributes, &mask);
        sigset_t ignoredHere; // and not to be ignored by the program
        sigemptyset(&ignoredHere);
        sigaddset(&ignoredHere, SIGXFSZ);
        posix_spawnattr_setsigdefault(&m_attributes, &ignoredHere);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&m_attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    const posix_spawnattr_t* get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes{};
};

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::string nameOf(const std::string& variable)
{
    return variable.substr(0, variable.find('=') + 1);
}

std::vector<std::string> environmentWith(const std::vector<std::string>& variables)
{
    std::vector<std::string> environment = variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string name = nameOf(*variable);
        if (std::none_of(variables.begin(), variables.end(), [&](const auto& ours) { return nameOf(ours) == name; }))
            environment.emplace_back(*variable);
    }
    return environment;
}

/// The terminal also sends these to the program, which is in the same process group.
bool programHasIt(const signalfd_siginfo& signal)
{
    return signal.ssi_code == SI_KERNEL && signal.ssi_signo != SIGHUP;
}

bool ended(pid_t pid, int& status)
{
    return waitpid(pid, &status, WNOHANG) == pid;
}

int exitStatusOf(int status)
{
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

int exitStatusOfNotStarted(int error)
{
    return error == ENOENT ? kExitNotFound : kExitNotRunnable;
}

ChildProgram::ChildProgram()
{
    std::signal(SIGCHLD, SIG_DFL); // if it is ignored (inherited), no end of a child is reported
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kPassedOn)
        sigaddset(&signals, signal);
    sigaddset(&signals, SIGCHLD); // ends the wait
    pthread_sigmask(SIG_BLOCK, &signals, &m_previous);
    m_signals = signalfd(-1, &signals, SFD_CLOEXEC);
    if (m_signals == -1)
        throw std::runtime_error(std::string("cannot wait for signals: ") + std::strerror(errno));
}

ChildProgram::~ChildProgram()
{
    close(m_signals);
}

int ChildProgram::run(const std::vector<std::string>& command, const std::vector<std::string>& variables)
{
    std::vector<std::string> arguments = command;
    std::vector<std::string> environment = environmentWith(variables);
    const SpawnAttributes attributes(m_previous);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, arguments.front().c_str(), nullptr, attributes.get(),
                                   pointersTo(arguments).data(), pointersTo(environment).data());
    if (error != 0)
        return -error;

    int status = 0;
    while (!ended(pid, status)) {
        signalfd_siginfo signal{};
        if (read(m_signals, &signal, sizeof(signal)) == sizeof(signal) && signal.ssi_signo != SIGCHLD &&
            !programHasIt(signal))
            kill(pid, static_cast<int>(signal.ssi_signo));
    }
    return exitStatusOf(status);
}

} // namespace VorelKestrel
