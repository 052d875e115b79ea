#include "authchipdriver/i2c.h"

#include <cassert>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <abstractionlibrary/globalmutex.h>

#include "authchipdriver/consolelog.h"

namespace VorelKestrel { namespace ACD {
namespace {

constexpr int kAttempts = 100; // of one message, before it counts as failed
constexpr useconds_t kRetryPauseMicroseconds = 10000;

int g_file = -1; // the open i2c-dev device; -1 is none
AL::DebugStdioLogger* g_logger = AL::DebugStdioLogger::getInstance(kLoggerName);
AL::GlobalMutex g_i2cMutex; // the transaction lock

/// Sends one message, again and again with a pause while the chip refuses it. Returns the result of the last attempt.
ssize_t writeMessage(const AL::U8* message, std::size_t length)
{
    ssize_t written = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        written = write(g_file, message, length);
        if (static_cast<std::size_t>(written) == length)
            break;
        usleep(kRetryPauseMicroseconds); // after the last attempt as well
    }
    return written;
}

/// Receives one message, at once again while the bus fails. Returns the first result other than -1.
ssize_t readMessage(AL::U8* message, std::size_t length)
{
    ssize_t received = -1;
    for (int attempt = 0; attempt < kAttempts && received == -1; ++attempt)
        received = read(g_file, message, length);
    return received;
}

} // namespace

int i2cInit(const char* device, int address)
{
    DBG_TRACE("i2cInit() " << device);
    // Deliberate: a device that is already open is neither closed nor used again; the factory may call this repeatedly.
    g_file = open(device, O_RDWR);
    if (g_file < 0) {
        DBG_ERROR("Unable to open " << device);
        return 1;
    }
    if (ioctl(g_file, I2C_SLAVE, address) < 0) {
        DBG_ERROR("Unable to select address 0x" << std::hex << address << std::dec);
        close(g_file);
        g_file = -1;
        return 1;
    }
    return 0;
}

bool i2cStartTransaction()
{
    DBG_TRACE("i2cStartTransaction()");
    assert(g_file != -1);
    g_i2cMutex.lock();
    return true;
}

// Two messages, the register number and then a plain read: the chip does not need a combined transfer.
int i2cRead(AL::U8 reg, int len, AL::U8* buf)
{
    DBG_TRACE("i2cRead(reg=0x" << std::hex << static_cast<unsigned>(reg) << std::dec << ", length=" << len << ")");
    assert(g_file != -1);
    if (writeMessage(&reg, sizeof(reg)) != sizeof(reg))
        return 0; // Deliberate: the only sign that the chip took no register number.
    return static_cast<int>(readMessage(buf, static_cast<std::size_t>(len)));
}

int i2cWrite(AL::U8 reg, int len, const AL::U8* buf)
{
    DBG_TRACE("i2cWrite(reg=0x" << std::hex << static_cast<unsigned>(reg) << std::dec << ", length=" << len << ")");
    assert(g_file != -1);
    // A negative length goes to the system as it is, which refuses it; the buffer holds the register number all the
    // same.
    const std::size_t dataLength = len > 0 ? static_cast<std::size_t>(len) : 0;
    const std::unique_ptr<AL::U8[]> message(new AL::U8[1 + dataLength]);
    message[0] = reg;
    if (dataLength > 0)
        std::memcpy(&message[1], buf, dataLength);
    return static_cast<int>(writeMessage(message.get(), static_cast<std::size_t>(len) + 1)) - 1;
}

void i2cStopTransaction()
{
    try {
        DBG_TRACE("i2cStopTransaction()");
    } catch (...) {
        assert(g_file != -1);
        g_i2cMutex.unlock(); // a host may have its console throw, but not keep the bus from the others with it
        throw;
    }
    assert(g_file != -1);
    g_i2cMutex.unlock();
}

void i2cClose()
{
    DBG_TRACE("i2cClose()");
    assert(g_file != -1);
    close(g_file);
    g_file = -1;
}

}} // namespace VorelKestrel::ACD
