#ifndef CAPTURE_FORMAT_H
#define CAPTURE_FORMAT_H

#include <cstddef>
#include <cstdint>

#include <abstractionlibrary/types.h>

namespace VorelKestrel::Capture {

// pcapng, as Wireshark and tcpdump have it; docs/capture-format.md describes what our files are made of.

constexpr AL::U32 kSectionHeaderBlock = 0x0a0d0d0a;
constexpr AL::U32 kInterfaceBlock = 1;
constexpr AL::U32 kPacketBlock = 6; // "enhanced"
constexpr AL::U32 kByteOrderMagic = 0x1a2b3c4d;
constexpr AL::U32 kSwappedByteOrderMagic = 0x4d3c2b1a;
constexpr AL::U16 kMajorVersion = 1;

constexpr AL::U16 kLinkTypeI2cLinux = 209;

constexpr AL::U16 kOptionEnd = 0;
constexpr AL::U16 kOptionComment = 1;
constexpr AL::U16 kOptionCustomBytes = 2989; // a tool that does not know them may copy them
constexpr AL::U16 kSectionOptionOs = 3;
constexpr AL::U16 kSectionOptionProgram = 4;
constexpr AL::U16 kInterfaceOptionName = 2;
constexpr AL::U16 kInterfaceOptionResolution = 9;
constexpr AL::U16 kPacketOptionFlags = 2;
constexpr AL::U8 kResolutionNanoseconds = 9; // ten to the power of minus so much
constexpr AL::U32 kPacketInbound = 1;
constexpr AL::U32 kPacketOutbound = 2;

// Before the address byte of every packet: the number of the bus, and flags, the more significant byte first.
constexpr std::size_t kPseudoHeaderLength = 5;
constexpr AL::U8 kEventBit = 0x80; // of the bus byte: no message but an event
constexpr AL::U8 kBusMask = 0x7f;
constexpr AL::U32 kFlagRead = 0x0001;   // as in linux/i2c.h
constexpr AL::U32 kFlagTenBit = 0x0010; // as in linux/i2c.h
constexpr AL::U8 kReadBit = 1;          // of the address byte

/**
 * Our own option tells what a packet cannot. Custom options begin with the number of an enterprise; this one is
 * reserved for documentation, hence the magic behind it.
 *
 *     offset  bytes                              offset  bytes
 *          0      4  kEnterprise, as the file         36     8  duration
 *          4      4  kMagic                           44     2  place in the system call
 *          8      1  call                             46     2  messages of the system call
 *          9      1  1: redacted                      48     4  attempt
 *         10      2  address                          52     4  kind of the SMBus transfer
 *         12      4  process                          56        what a message that did not get through whole
 *         16      4  thread                                     was meant to send
 *         20      4  bus
 *         24      4  requested length
 *         28      4  result
 *         32      4  length of that message
 *
 * All but kEnterprise has the more significant byte first.
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
