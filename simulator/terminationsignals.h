#ifndef SIMULATOR_TERMINATIONSIGNALS_H
#define SIMULATOR_TERMINATIONSIGNALS_H

#include <csignal>

#include "common/scopeddescriptor.h"

namespace VorelKestrel::Simulator {

/**
 * Takes the signals that ask the process to end, so that it can tidy up first.
 *
 * Requires:  it is made before the first thread of the process, since it takes the signals away from all of them.
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
