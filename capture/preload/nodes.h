#ifndef CAPTURE_PRELOAD_NODES_H
#define CAPTURE_PRELOAD_NODES_H

#include <atomic>
#include <cstdint>

#include <sys/types.h>

#include "capture/conversation.h"

namespace VorelKestrel::Capture {

/**
 * An open node of the program. Duplicated descriptors share it, like its address.
 *
 * Threads: any. If two threads use one node at the same time, attempts may be miscounted.
 */
struct OpenNode
{
    std::atomic<int> descriptors; // of this node; 0: the place is free
    AL::U32 bus;
    bool hasIdentity; // the kernel reports the file's identity
    dev_t device;
    ino_t inode;
    std::atomic<AL::U16> address;
    std::atomic<Conversation> conversation;
};

/// Notes whether the descriptor that open() returned for @p path (may be null) is an i2c-dev node.
void noticeOpened(int descriptor, const char* path);
/// Notes that the copy shares the node of the original. It may have replaced another descriptor.
void noticeDuplicated(int original, int copy);
void noticeClosed(int descriptor);
void noticeClosed(unsigned first, unsigned last);
/// Finds the nodes that the program inherited.
void noticeInherited();

/// The node of a descriptor; null if it is not a node, or no longer this one.
OpenNode* findNode(int descriptor);

} // namespace VorelKestrel::Capture

#endif
