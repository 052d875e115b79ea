#ifndef CAPTURE_FORMAT_H
#define CAPTURE_FORMAT_H

#include <cstddef>
#include <cstdint>

#include <abstractionlibrary/types.h>

namespace VorelKestrel::Capture {

// pcapng, the format of Wireshark and tcpdump. docs/capture-format.md describes our files.

constexpr AL::U32 kSectionHeaderBlock = 0x0a0d0d0a;
constexpr AL::U32 kInterfaceBlock = 1;
constexpr AL::U32 kPacketBlock = 6; // "enhanced"
constexpr AL::U32 kByteOrderMagic = 0x1a2b3c4d;
constexpr AL::U32 kSwappedByteOrderMagic = 0x4d3c2b1a;
constexpr AL::U16 kMajorVersion = 1;

constexpr AL::U16 kLinkTypeI2cLinux = 209;

constexpr AL::U16 kOptionEnd = 0;
constexpr AL::U16 kOptionComment = 1;
constexpr AL::U16 kOptionCustomBytes = 2989; // tools that do not know them may copy them
constexpr AL::U16 kSectionOptionOs = 3;
constexpr AL::U16 kSectionOptionProgram = 4;
constexpr AL::U16 kInterfaceOptionName = 2;
constexpr AL::U16 kInterfaceOptionResolution = 9;
constexpr AL::U16 kPacketOptionFlags = 2;
constexpr AL::U8 kResolutionNanoseconds = 9; // 10 to the power of -9
constexpr AL::U32 kPacketInbound = 1;
constexpr AL::U32 kPacketOutbound = 2;

// Before the address byte of every packet: the number of the bus, and the flags in big-endian order.
constexpr std::size_t kPseudoHeaderLength = 5;
constexpr AL::U8 kEventBit = 0x80; // of the bus byte: an event, not a message
constexpr AL::U8 kBusMask = 0x7f;
constexpr AL::U32 kFlagRead = 0x0001;   // as in linux/i2c.h
constexpr AL::U32 kFlagTenBit = 0x0010; // as in linux/i2c.h
constexpr AL::U8 kReadBit = 1;          // of the address byte

/**
 * Our own option contains what does not fit into a packet. Custom options begin with an enterprise number. Ours is
 * reserved for documentation, so a magic number follows it.
 *
 *     offset  bytes                              offset  bytes
 *          0      4  kEnterprise, as the file         36     8  duration
 *          4      4  kMagic                           44     2  place in the system call
 *          8      1  call                             46     2  messages of the system call
 *          9      1  1: redacted                      48     4  attempt
 *         10      2  address                          52     4  kind of the SMBus transfer
 *         12      4  process                          56        the bytes of a write that failed or
 *         16      4  thread                                     was short
 *         20      4  bus
 *         24      4  requested length
 *         28      4  result
 *         32      4  length of that message
 *
 * All numbers except kEnterprise are big-endian.
 */
constexpr AL::U32 kEnterprise = 32473;
constexpr AL::U8 kMagic[4] = {'A', 'C', 'P', '1'};
constexpr std::size_t kFactsLength = 56;

constexpr std::size_t paddedTo4(std::size_t length)
{
    return (length + 3) & ~std::size_t{3};
}

} // namespace VorelKestrel::Capture

#endif
