#include "simulator/terminationsignals.h"

#include <poll.h>
#include <sys/signalfd.h>

namespace VorelKestrel::Simulator {

TerminationSignals::TerminationSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, &m_previous);
    m_signals = ScopedDescriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

TerminationSignals::~TerminationSignals()
{
    // A signal that was waited for is still pending; it must not end the process now.
    signalfd_siginfo taken{};
    pollfd signal{m_signals.get(), POLLIN, 0};
    while (poll(&signal, 1, 0) > 0 && read(m_signals.get(), &taken, sizeof(taken)) > 0) {}
    pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

bool TerminationSignals::wait(int connection) const
{
    pollfd watched[] = {{m_signals.get(), POLLIN, 0}, {connection, 0, 0}};
    while (poll(watched, 2, -1) < 0) {}
    return watched[0].revents != 0;
}

} // namespace VorelKestrel::Simulator
