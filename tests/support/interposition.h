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

/// Declares a function with the symbol of a C library function but another name in the source, so that no header of the
/// C library can redirect it. The shared library's calls by that name then arrive here.
#define SPELLING(symbol) __asm__(symbol) __attribute__((visibility("default")))

#endif
