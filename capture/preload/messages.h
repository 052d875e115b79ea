#ifndef CAPTURE_PRELOAD_MESSAGES_H
#define CAPTURE_PRELOAD_MESSAGES_H

#include <cstddef>
#include <cstdint>

#include <sys/types.h>
#include <sys/uio.h>

#include "capture/preload/nodes.h"

namespace VorelKestrel::Capture {

/// A system call that has returned. Its error is in errno; whoever records it restores errno.
struct EndedCall
{
    std::uint64_t begin;
    std::uint64_t end;
    long result;
};

void recordWrite(OpenNode& node, const EndedCall& call, const void* data, std::size_t count);
void recordRead(OpenNode& node, const EndedCall& call, const void* data, std::size_t count);
void recordVector(OpenNode& node, const EndedCall& call, bool isRead, const iovec* pieces, int pieceCount);
void recordIoctl(OpenNode& node, const EndedCall& call, unsigned long request, unsigned long argument);

} // namespace VorelKestrel::Capture

#endif
