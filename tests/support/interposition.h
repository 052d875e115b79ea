#ifndef TESTS_SUPPORT_INTERPOSITION_H
#define TESTS_SUPPORT_INTERPOSITION_H

#include <dlfcn.h>

namespace testsupport {

/// The next definition of @p symbol after this program's: the C library's, or a sanitizer's around it.
template<typename Function>
Function* nextDefinition(const char* symbol)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

} // namespace testsupport

/// Gives a function of this program the C library's name as its symbol, under a name of its own in the source, so that
/// no header of the C library can redirect it. What the shared library calls by that name then arrives there.
#define SPELLING(symbol) __asm__(symbol) __attribute__((visibility("default")))

#endif
