#pragma once

#include <dlfcn.h>

/// The next library's function with this name, cached in @p known. Two threads may look it up at the same time and find
/// the same.
template<typename Function>
Function nextOf(const char* name, Function& known)
{
    Function function = __atomic_load_n(&known, __ATOMIC_RELAXED);
    if (function == nullptr) {
        function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
        __atomic_store_n(&known, function, __ATOMIC_RELAXED);
    }
    return function;
}
