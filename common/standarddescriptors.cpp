#include "common/standarddescriptors.h"

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace VorelKestrel {

void occupyStandardDescriptors()
{
    constexpr int kDirections[] = {O_WRONLY, O_RDONLY, O_RDONLY}; // that no program uses on this descriptor
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0)
            continue;
        // open() gives the lowest that is free: this one, since those below are open by now.
        const int opened = open("/dev/null", kDirections[descriptor]);
        if (opened != descriptor)
            std::abort(); // without /dev/null there is nothing harmless to open, and nowhere to say so
    }
}

} // namespace VorelKestrel
