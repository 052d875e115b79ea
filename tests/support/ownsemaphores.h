#ifndef TESTS_SUPPORT_OWNSEMAPHORES_H
#define TESTS_SUPPORT_OWNSEMAPHORES_H

/**
 * A program that links ownsemaphores.cpp shares no semaphore but with its children, not even by the library's
 * transaction lock, which is as old as the process: one that is shared goes away at any time, with the process that
 * made it, and a lock then makes it again with calls and allocations of its own.
 */
namespace ownsemaphores {

/// How many of this process's semaphores the system has.
int count();

/// From now on the system gives none and says @p error; 0: it gives them again.
void refuse(int error);

} // namespace ownsemaphores

#endif
