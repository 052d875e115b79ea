#include "common/standarddescriptors.h"

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace VorelKestrel {

void occupyStandardDescriptors()
{
    constexpr int kDirections[] = {O_WRONLY, O_RDONLY, O_RDONLY}; // the direction that programs do not use
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0)
            continue;
        // open() returns the lowest free descriptor: this one, because those below are open.
        const int opened = open("/dev/null", kDirections[descriptor]);
        if (opened != descriptor)
            std::abort(); // without /dev/null there is nothing harmless to open, and nowhere to report it
    }
}

} // namespace VorelKestrel
