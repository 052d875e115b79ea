#include "tests/support/allocations.h"

#include <atomic>
#include <cerrno>
#include <limits>
#include <malloc.h>
#include <new>
#include <string>

namespace allocations = testsupport::allocations;

namespace {

thread_local bool t_counting = false;
thread_local int t_count = 0;
thread_local bool t_paused = false;

constexpr std::size_t kNoSize = std::numeric_limits<std::size_t>::max();
thread_local std::size_t t_refusedSize = kNoSize;

constexpr int kNone = 0;
thread_local int t_refusedNumber = kNone; // counts down to the refused allocation
thread_local bool t_refusesOnwards = false;
thread_local bool t_refused = false;

thread_local allocations::Watch* t_watch = nullptr;

std::atomic<long> g_blocks{0};
std::atomic<long> g_bytes{0};

void countLiving(void* block, int sign)
{
    if (block == nullptr || t_paused)
        return;
    g_blocks += sign;
    g_bytes += sign * static_cast<long>(malloc_usable_size(block));
}

/// Counts one allocation; true if it is to fail.
bool isRefused(std::size_t size)
{
    if (t_paused)
        return false;
    if (t_counting)
        ++t_count;
    if (t_refusedNumber > 1) {
        --t_refusedNumber;
    } else if (t_refusedNumber == 1) {
        if (!t_refusesOnwards)
            t_refusedNumber = kNone;
        t_refused = true;
        return true;
    }
    return size == t_refusedSize;
}

/// Allocates a block, unless it is refused.
template<typename Allocate>
void* allocate(std::size_t size, Allocate makeBlock)
{
    if (isRefused(size)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const block = makeBlock();
    countLiving(block, 1);
    return block;
}

} // namespace

// The C library's definitions, under the names that it provides for such replacements.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

__attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    void* const block = allocate(size, [=] { return __libc_malloc(size); });
    if (t_watch != nullptr && !t_paused)
        t_watch->allocated(block, size);
    return block;
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size)
{
    return allocate(kNoSize - 1, [=] { return __libc_calloc(count, size); });
}

__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size)
{
    if (isRefused(kNoSize - 1)) {
        errno = ENOMEM;
        return nullptr;
    }
    countLiving(block, -1);
    void* const moved = __libc_realloc(block, size);
    countLiving(moved != nullptr || size == 0 ? moved : block, 1);
    return moved;
}

__attribute__((visibility("default"))) void* memalign(std::size_t alignment, std::size_t size)
{
    return allocate(kNoSize - 1, [=] { return __libc_memalign(alignment, size); });
}

__attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    return memalign(alignment, size);
}

__attribute__((visibility("default"))) int posix_memalign(void** block, std::size_t alignment, std::size_t size)
{
    *block = memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

__attribute__((visibility("default"))) void free(void* block)
{
    countLiving(block, -1);
    if (t_watch != nullptr && !t_paused)
        t_watch->freed(block);
    __libc_free(block);
}

} // extern "C"

// The same as in the C++ library; valgrind would replace those, and its versions do not call these.
void* operator new(std::size_t size)
{
    void* const block = malloc(size != 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void operator delete(void* block) noexcept
{
    free(block);
}

void operator delete[](void* block) noexcept
{
    free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept
{
    free(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept
{
    free(block);
}

namespace testsupport::allocations {

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

Shortage::Shortage(int number, Extent extent)
{
    t_refusedNumber = number;
    t_refusesOnwards = extent == Extent::AllFromThere;
    t_refused = false;
}

Shortage::~Shortage()
{
    t_refusedNumber = kNone;
}

bool Shortage::wasFelt() const // NOLINT(readability-convert-member-functions-to-static): as Counter::count().
{
    return t_refused;
}

Watch::Watch(std::size_t size, Journal& journal, std::function<void()> atMalloc)
    : m_size(size), m_journal(journal), m_atMalloc(std::move(atMalloc))
{
    t_watch = this;
}

Watch::~Watch()
{
    t_watch = nullptr;
}

void Watch::allocated(void* block, std::size_t size)
{
    if (size != m_size)
        return;
    const Pause pause;
    m_journal.add(Journal::Kind::Call, "malloc " + std::to_string(size));
    m_blocks.insert(block);
    if (m_atMalloc)
        m_atMalloc();
}

void Watch::freed(void* block)
{
    const Pause pause;
    if (m_blocks.erase(block) > 0)
        m_journal.add(Journal::Kind::Call, "free " + std::to_string(m_size));
}

Living living()
{
    return {g_blocks, g_bytes};
}

std::ostream& operator<<(std::ostream& stream, const Living& living)
{
    return stream << living.blocks << " blocks, " << living.bytes << " bytes";
}

Pause::Pause() : m_wasPaused(t_paused)
{
    t_paused = true;
}

Pause::~Pause()
{
    t_paused = m_wasPaused;
}

} // namespace testsupport::allocations
