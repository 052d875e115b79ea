#ifndef CAPTURE_PRELOAD_NODES_H
#define CAPTURE_PRELOAD_NODES_H

#include <atomic>
#include <cstdint>

#include <sys/types.h>

#include "capture/conversation.h"

namespace VorelKestrel::Capture {

/**
 * A node that the program has opened. Descriptors that were duplicated share it, as they share its address.
 *
 * Threads: any. Two threads that use one node at the same time can make each other's attempts be counted wrong.
 */
struct OpenNode
{
    std::atomic<int> descriptors; // that lead to it; 0: the place is free
    AL::U32 bus;
    bool hasIdentity; // the kernel knows the file
    dev_t device;
    ino_t inode;
    std::atomic<AL::U16> address;
    std::atomic<Conversation> conversation;
};

/// Looks whether the descriptor that open() gave for @p path, which may be null, leads to an i2c-dev node.
void noticeOpened(int descriptor, const char* path);
/// The copy shares what the original leads to; it may have replaced another one.
void noticeDuplicated(int original, int copy);
void noticeClosed(int descriptor);
void noticeClosed(unsigned first, unsigned last);
/// Finds the nodes that the program was started with.
void noticeInherited();

/// The node that a descriptor leads to; null if it is none, or no longer that one.
OpenNode* findNode(int descriptor);

} // namespace VorelKestrel::Capture

#endif
