#ifndef COMMON_FILECONTENT_H
#define COMMON_FILECONTENT_H

#include <cstddef>
#include <string>

#include "common/bytes.h"

namespace VorelKestrel {

struct FileContent
{
    int error = 0;          // errno; 0: it has been read
    bool isTooLong = false; // then these are its first bytes
    Bytes bytes;
};

/// Reads a file of at most @p longest bytes: a device such as /dev/zero has no end. Waits for whoever writes to a pipe.
FileContent readFile(const std::string& path, std::size_t longest);

} // namespace VorelKestrel

#endif
