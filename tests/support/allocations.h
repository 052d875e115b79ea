#ifndef TESTS_SUPPORT_ALLOCATIONS_H
#define TESTS_SUPPORT_ALLOCATIONS_H

#include <cstddef>
#include <functional>
#include <ostream>
#include <set>

#include "tests/support/journal.h"

/**
 * The allocations of this thread. A program that links allocations.cpp defines malloc and its kin itself, so that the
 * shared library under test and the libraries below it are counted, too. Not for sanitizer builds, which bring an
 * allocator of their own.
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

/// While it lives, malloc has no block of exactly this size for this thread: the result is null.
class Refusal
{
public:
    explicit Refusal(std::size_t size);
    ~Refusal();
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;
};

/// While it lives, this thread's allocation of that number fails, whoever makes it; the first is 1.
class Shortage
{
public:
    enum class Extent
    {
        One,         ///< the allocations after it succeed again
        AllFromThere ///< none succeeds any more
    };

    Shortage(int number, Extent extent);
    ~Shortage();
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

    /// True once an allocation was refused.
    bool wasFelt() const;
};

/// While it lives, writes down what becomes of this thread's blocks from malloc of exactly one size: "malloc 97",
/// "free 97".
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

/// The blocks of the whole process that were allocated and not freed.
struct Living
{
    long blocks;
    long bytes;

    bool operator==(const Living& other) const { return blocks == other.blocks && bytes == other.bytes; }
    bool operator!=(const Living& other) const { return !(*this == other); }
};

std::ostream& operator<<(std::ostream& stream, const Living& living);

Living living();

/// To the end of the scope nothing that this thread allocates or frees is counted or refused: what a fake does for
/// itself.
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
