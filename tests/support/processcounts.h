#ifndef TESTS_SUPPORT_PROCESSCOUNTS_H
#define TESTS_SUPPORT_PROCESSCOUNTS_H

/// What this process has. The counting itself is no allocation of the thread's.
int descriptorCount();
int threadCount();

#endif
