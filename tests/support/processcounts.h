#ifndef TESTS_SUPPORT_PROCESSCOUNTS_H
#define TESTS_SUPPORT_PROCESSCOUNTS_H

namespace testsupport {

/// The resources of this process. Counting them is not counted as an allocation.
int descriptorCount();
int threadCount();

} // namespace testsupport

#endif
