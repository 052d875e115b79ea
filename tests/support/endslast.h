#ifndef TESTS_SUPPORT_ENDSLAST_H
#define TESTS_SUPPORT_ENDSLAST_H

namespace testsupport {

/// Calls @p action at the very end of the process, after the static objects of the library under test are destroyed:
/// from the finaliser of a shared library that ends later. @p action must check that order if it matters.
__attribute__((visibility("default"))) void atTheVeryEnd(void (*action)());

} // namespace testsupport

#endif
