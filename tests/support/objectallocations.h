#ifndef TESTS_SUPPORT_OBJECTALLOCATIONS_H
#define TESTS_SUPPORT_OBJECTALLOCATIONS_H

#include <cstddef>

namespace testsupport {

/**
 * Counts the allocations of its thread during its lifetime, and can make one of them fail with std::bad_alloc. Counts
 * `new` of single objects, such as the library's classes and their records, in programs that link
 * objectallocations.cpp.
 */
class ObjectAllocations
{
public:
    static constexpr int kNone = 0;

    /// Makes the allocation with this number fail; the first is 1.
    explicit ObjectAllocations(int failing = kNone);
    ~ObjectAllocations();
    ObjectAllocations(const ObjectAllocations&) = delete;
    ObjectAllocations& operator=(const ObjectAllocations&) = delete;

    /// The number of blocks that are allocated and not freed.
    int outstanding() const;
    /// The number of blocks of exactly this size (below 64 bytes) that were allocated.
    int made(std::size_t size) const;
};

/// Watches until the very end of the process whether this block, allocated by `new`, is deleted. For at most two
/// blocks.
void watchDeletionOf(const void* block);
bool wasDeleted(const void* block);

} // namespace testsupport

#endif
