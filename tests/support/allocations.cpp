#include "tests/support/allocations.h"

#include <limits>

namespace {

thread_local bool t_counting = false;
thread_local int t_count = 0;

constexpr std::size_t kNoSize = std::numeric_limits<std::size_t>::max();
thread_local std::size_t t_refusedSize = kNoSize;

void countOne()
{
    if (t_counting)
        ++t_count;
}

} // namespace

// The C library's own definitions, under the names that it keeps for replacements like these.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    countOne();
    return size == t_refusedSize ? nullptr : __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size)
{
    countOne();
    return __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size)
{
    countOne();
    return __libc_realloc(block, size);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace allocations {

Counter::Counter()
{
    t_count = 0;
    t_counting = true;
}

Counter::~Counter()
{
    t_counting = false;
}

int Counter::count() const // NOLINT(readability-convert-member-functions-to-static): reads like the count of a scope.
{
    return t_count;
}

Refusal::Refusal(std::size_t size)
{
    t_refusedSize = size;
}

Refusal::~Refusal()
{
    t_refusedSize = kNoSize;
}

Pause::Pause() : m_wasCounting(t_counting)
{
    t_counting = false;
}

Pause::~Pause()
{
    t_counting = m_wasCounting;
}

} // namespace allocations
