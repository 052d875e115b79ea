#ifndef SIMULATOR_TERMINATIONSIGNALS_H
#define SIMULATOR_TERMINATIONSIGNALS_H

#include <csignal>

#include "common/scopeddescriptor.h"

namespace VorelKestrel::Simulator {

/**
 * Blocks the signals that end the process, so that it can clean up first.
 *
 * Requires:  created before the first thread of the process, because all threads must block the signals.
 */
class TerminationSignals
{
public:
    TerminationSignals();
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;
    ~TerminationSignals();

    /// Waits for a signal and returns true; returns false if the other side of @p connection hangs up first (-1: none).
    bool wait(int connection) const;

private:
    sigset_t m_previous;
    ScopedDescriptor m_signals;
};

} // namespace VorelKestrel::Simulator

#endif
