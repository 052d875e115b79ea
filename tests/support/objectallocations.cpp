#include "tests/support/objectallocations.h"

#include <cstddef>
#include <new>

#include "tests/support/interposition.h"

namespace {

thread_local bool g_counting = false;
thread_local int g_failing = ObjectAllocations::kNone;
thread_local int g_allocated = 0;
thread_local int g_freed = 0;

} // namespace

ObjectAllocations::ObjectAllocations(int failing)
{
    g_failing = failing;
    g_allocated = 0;
    g_freed = 0;
    g_counting = true;
}

ObjectAllocations::~ObjectAllocations()
{
    g_counting = false;
}

int ObjectAllocations::outstanding() const
{
    return g_allocated - g_freed;
}

void* operator new(std::size_t size)
{
    static auto* const next = nextDefinition<void*(std::size_t)>(sizeof(size) == 4 ? "_Znwj" : "_Znwm");
    if (!g_counting)
        return next(size);
    if (g_failing != ObjectAllocations::kNone && --g_failing == 0)
        throw std::bad_alloc();
    ++g_allocated;
    return next(size);
}

void operator delete(void* block) noexcept
{
    static auto* const next = nextDefinition<void(void*)>("_ZdlPv");
    if (g_counting && block != nullptr)
        ++g_freed;
    next(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept
{
    operator delete(block);
}
