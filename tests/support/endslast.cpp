#include "tests/support/endslast.h"

namespace testsupport {

namespace {

void (*g_action)() = nullptr;

[[gnu::destructor]] void end()
{
    if (g_action != nullptr)
        g_action();
}

} // namespace

void atTheVeryEnd(void (*action)())
{
    g_action = action;
}

} // namespace testsupport
