#ifndef TESTS_SUPPORT_PROCESSCOUNTS_H
#define TESTS_SUPPORT_PROCESSCOUNTS_H

namespace testsupport {

/// What this process has. The counting itself is no allocation of the thread's.
int descriptorCount();
int threadCount();

} // namespace testsupport

#endif
