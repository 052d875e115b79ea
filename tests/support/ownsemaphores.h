#ifndef TESTS_SUPPORT_OWNSEMAPHORES_H
#define TESTS_SUPPORT_OWNSEMAPHORES_H

/**
 * A program that links ownsemaphores.cpp has no semaphore that others on the machine could find: what the library asks
 * for by a key is one without a key, known to this process and to the children that it forks. So no test meets a
 * semaphore of anybody's, and none that another test removes.
 */
namespace testsupport::ownsemaphores {

/// How many there are.
int count();

/// From now on the system gives none and says @p error; 0: it gives them again.
void refuse(int error);

} // namespace testsupport::ownsemaphores

#endif
