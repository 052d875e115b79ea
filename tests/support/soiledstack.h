#ifndef TESTS_SUPPORT_SOILEDSTACK_H
#define TESTS_SUPPORT_SOILEDSTACK_H

#include <abstractionlibrary/types.h>

namespace testsupport {

/// Leaves bytes other than 0 where the stack of the next call is, so that a variable that is not initialised shows. As
/// much of it as a function takes that holds a hundred changed copies of its body (scripts/mutate).
[[gnu::noinline]] inline void soilStack()
{
    volatile VorelKestrel::AL::U8 bytes[262144];
    for (volatile VorelKestrel::AL::U8& byte : bytes)
        byte = 0xee;
}

} // namespace testsupport

#endif
