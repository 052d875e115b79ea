#ifndef TESTS_SUPPORT_SOILEDSTACK_H
#define TESTS_SUPPORT_SOILEDSTACK_H

#include <abstractionlibrary/types.h>

namespace testsupport {

/// Fills the stack of the next call with bytes other than 0, so that an uninitialised variable shows. Enough even for a
/// function with a hundred changed copies of its body (scripts/mutate).
[[gnu::noinline]] inline void soilStack()
{
    volatile VorelKestrel::AL::U8 bytes[262144];
    for (volatile VorelKestrel::AL::U8& byte : bytes)
        byte = 0xee;
}

} // namespace testsupport

#endif
