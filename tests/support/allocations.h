#ifndef TESTS_SUPPORT_ALLOCATIONS_H
#define TESTS_SUPPORT_ALLOCATIONS_H

#include <cstddef>
#include <functional>
#include <ostream>
#include <set>

#include "tests/support/journal.h"

/**
 * The allocations of this thread. A program that links allocations.cpp defines malloc and related functions itself, so
 * that allocations of the library under test and of the libraries below it are counted. Not for sanitizer builds, which
 * have their own allocator.
 */
namespace testsupport::allocations {

/// Counts from here to the end of the scope.
class Counter
{
public:
    Counter();
    ~Counter();
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;

    int count() const;
};

/// During its lifetime, malloc returns null to this thread for blocks of exactly this size.
class Refusal
{
public:
    explicit Refusal(std::size_t size);
    ~Refusal();
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;
};

/// During its lifetime, this thread's allocation with this number fails; the first is 1.
class Shortage
{
public:
    enum class Extent
    {
        One,         ///< later allocations succeed
        AllFromThere ///< all later ones fail, too
    };

    Shortage(int number, Extent extent);
    ~Shortage();
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

    /// True once an allocation was refused.
    bool wasFelt() const;
};

/// During its lifetime, writes this thread's blocks of exactly one size into the journal: "malloc 97", "free 97".
class Watch
{
public:
    /// @p atMalloc is called when such a block is allocated, before malloc returns.
    Watch(std::size_t size, Journal& journal, std::function<void()> atMalloc = nullptr);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // For malloc and free.
    void allocated(void* block, std::size_t size);
    void freed(void* block);

private:
    const std::size_t m_size;
    Journal& m_journal;
    const std::function<void()> m_atMalloc;
    std::set<void*> m_blocks;
};

/// The number of blocks of the whole process that are not freed.
struct Living
{
    long blocks;
    long bytes;

    bool operator==(const Living& other) const { return blocks == other.blocks && bytes == other.bytes; }
    bool operator!=(const Living& other) const { return !(*this == other); }
};

std::ostream& operator<<(std::ostream& stream, const Living& living);

Living living();

/// Until the end of the scope, this thread's allocations are neither counted nor refused. For a fake's own allocations.
class Pause
{
public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

private:
    const bool m_wasPaused;
};

} // namespace testsupport::allocations

#endif
