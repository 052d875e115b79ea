#ifndef TESTS_SUPPORT_OBJECTALLOCATIONS_H
#define TESTS_SUPPORT_OBJECTALLOCATIONS_H

#include <cstddef>

namespace testsupport {

/**
 * Counts the allocations of the thread that makes it, for as long as it lives, and lets one of them fail with
 * std::bad_alloc. Counts `new` of a single object, which is what the library's classes and their records are, in a
 * program that links objectallocations.cpp.
 */
class ObjectAllocations
{
public:
    static constexpr int kNone = 0;

    /// The allocation of that number fails, the first is 1.
    explicit ObjectAllocations(int failing = kNone);
    ~ObjectAllocations();
    ObjectAllocations(const ObjectAllocations&) = delete;
    ObjectAllocations& operator=(const ObjectAllocations&) = delete;

    /// How many blocks were allocated and not freed yet.
    int outstanding() const;
    /// How many blocks of exactly that size were allocated, freed or not; a size below 64 bytes.
    int made(std::size_t size) const;
};

/// From now on to the very end of the process: whether that block, which `new` has made, is deleted. For two blocks at
/// most.
void watchDeletionOf(const void* block);
bool wasDeleted(const void* block);

} // namespace testsupport

#endif
