#ifndef TESTS_SUPPORT_ENDSLAST_H
#define TESTS_SUPPORT_ENDSLAST_H

namespace testsupport {

/// Calls @p action at the very end of the process, when the static objects of the library under test have been
/// destroyed. It is called by the finaliser of a shared library that ends later; whoever relies on that lets @p action
/// look whether it is so.
__attribute__((visibility("default"))) void atTheVeryEnd(void (*action)());

} // namespace testsupport

#endif
