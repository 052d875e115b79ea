#ifndef TESTS_SUPPORT_ALLOCATIONS_H
#define TESTS_SUPPORT_ALLOCATIONS_H

#include <cstddef>

/**
 * The allocations of this thread. A program that links allocations.cpp defines malloc and its kin itself, so that the
 * shared library under test and the libraries below it are counted, too. Not for sanitizer builds, which bring an
 * allocator of their own.
 */
namespace allocations {

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

/// Does not count to the end of the scope, inside a Counter's: what a fake does for itself.
class Pause
{
public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

private:
    const bool m_wasCounting;
};

} // namespace allocations

#endif
