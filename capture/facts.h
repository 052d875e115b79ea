#ifndef CAPTURE_FACTS_H
#define CAPTURE_FACTS_H

#include <cstdint>

#include <abstractionlibrary/types.h>

namespace VorelKestrel::Capture {

/// The system call of a message. The numbers are part of the format.
enum class Call : AL::U8
{
    Unknown = 0,       // the file was written by another program
    Write = 1,         // write()
    Read = 2,          // read()
    Transfer = 3,      // one message of ioctl(I2C_RDWR)
    Smbus = 4,         // ioctl(I2C_SMBUS)
    SelectAddress = 5, // ioctl(I2C_SLAVE) or ioctl(I2C_SLAVE_FORCE), not a message
    Wire = 6           // recorded by a simulated chip, without the system call
};
constexpr AL::U8 kLastCall = 6;

constexpr AL::U16 kUnknownAddress = 0xffff; // selected before the capture began

/// The facts about a message, without its bytes. Units: nanoseconds, bytes.
struct Facts
{
    std::uint64_t time = 0;     // when it began, since 1970
    std::uint64_t duration = 0; // of the system call
    Call call = Call::Unknown;
    bool isRead = false;
    bool isRedacted = false; // bytes were omitted on purpose
    AL::U16 address = 0;     // 7 or 10 bits
    AL::U32 bus = 0;         // the number of its i2c-dev node
    AL::U32 process = 0;     // 0: unknown
    AL::U32 thread = 0;
    AL::U32 requested = 0;    // number of bytes that the program asked for
    std::int32_t result = 0;  // number of bytes moved, or a negative errno
    AL::U16 place = 0;        // position in its system call, from 0 ...
    AL::U16 messageCount = 1; // ... of this many messages
    AL::U32 attempt = 1;      // number of the attempt in a row of equal ones, from 1
    AL::U32 smbusSize = 0;    // of Call::Smbus: the kernel's code for the kind of transfer

    bool failed() const { return result < 0; }
    bool isShort() const { return result >= 0 && static_cast<AL::U32>(result) < requested; }
};

} // namespace VorelKestrel::Capture

#endif
