#include "tests/support/objectallocations.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <new>

#include "tests/support/interposition.h"

namespace {

struct WatchedBlock
{
    const void* address;
    bool wasDeleted;
};
WatchedBlock g_watched[2]; // filled from the front; no destructor, because they outlive every object

void noteDeletion(const void* block)
{
    for (WatchedBlock& watched : g_watched) {
        if (block != nullptr && watched.address == block)
            watched.wasDeleted = true;
    }
}

thread_local bool g_counting = false;
thread_local int g_failing = testsupport::ObjectAllocations::kNone;
thread_local int g_allocated = 0;
thread_local int g_freed = 0;
thread_local int g_made[64]; // by size

} // namespace

namespace testsupport {

ObjectAllocations::ObjectAllocations(int failing)
{
    g_failing = failing;
    g_allocated = 0;
    g_freed = 0;
    std::fill(std::begin(g_made), std::end(g_made), 0);
    g_counting = true;
}

ObjectAllocations::~ObjectAllocations()
{
    g_counting = false;
}

void watchDeletionOf(const void* block)
{
    WatchedBlock& free = g_watched[0].address == nullptr ? g_watched[0] : g_watched[1];
    free = {block, false};
}

bool wasDeleted(const void* block)
{
    for (const WatchedBlock& watched : g_watched) {
        if (watched.address == block)
            return watched.wasDeleted;
    }
    return false;
}

int ObjectAllocations::outstanding() const
{
    return g_allocated - g_freed;
}

int ObjectAllocations::made(std::size_t size) const
{
    return g_made[size];
}

} // namespace testsupport

void* operator new(std::size_t size)
{
    static auto* const next = testsupport::nextDefinition<void*(std::size_t)>(sizeof(size) == 4 ? "_Znwj" : "_Znwm");
    if (!g_counting)
        return next(size);
    if (g_failing != testsupport::ObjectAllocations::kNone && --g_failing == 0)
        throw std::bad_alloc();
    ++g_allocated;
    if (size < std::size(g_made))
        ++g_made[size];
    return next(size);
}

void operator delete(void* block) noexcept
{
    static auto* const next = testsupport::nextDefinition<void(void*)>("_ZdlPv");
    if (g_counting && block != nullptr)
        ++g_freed;
    noteDeletion(block);
    next(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept
{
    operator delete(block);
}
