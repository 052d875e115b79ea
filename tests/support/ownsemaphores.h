#ifndef TESTS_SUPPORT_OWNSEMAPHORES_H
#define TESTS_SUPPORT_OWNSEMAPHORES_H

/**
 * In a program that links ownsemaphores.cpp, other programs cannot find the semaphores: instead of one with a key, the
 * library gets one without a key, known only to this process and its forked children. So tests do not meet semaphores
 * of other programs, and do not remove each other's.
 */
namespace testsupport::ownsemaphores {

/// The number of these semaphores.
int count();

/// From now on the system refuses new ones with @p error; 0: it creates them again.
void refuse(int error);

} // namespace testsupport::ownsemaphores

#endif
