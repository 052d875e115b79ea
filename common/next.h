#ifndef COMMON_NEXT_H
#define COMMON_NEXT_H

#include <atomic>

#include <dlfcn.h>

/// Declares a function with the symbol of a C library function but another name in the source, so that no header of the
/// C library can redirect it.
#define SPELLING(symbol) __asm__(symbol) __attribute__((visibility("default")))

namespace VorelKestrel {

/// The next library's function with a name, looked up once. Threads: any; if two look it up at once, both find the
/// same.
template<typename Function>
class Next
{
public:
    constexpr explicit Next(const char* name) : m_name(name) {}

    Function* get()
    {
        Function* function = m_function.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, m_name));
            m_function.store(function, std::memory_order_relaxed);
        }
        return function;
    }
    template<typename... Arguments>
    auto operator()(Arguments... arguments)
    {
        return get()(arguments...);
    }

private:
    const char* const m_name;
    std::atomic<Function*> m_function{nullptr};
};

} // namespace VorelKestrel

#endif
