#ifndef AUTHCHIPDRIVER_I2C_H
#define AUTHCHIPDRIVER_I2C_H

#include <abstractionlibrary/export.h>
#include <abstractionlibrary/types.h>

namespace VorelKestrel { namespace ACD {

/**
 * @file
 * The one i2c-dev device of the process, and the registers of the one chip behind it.
 *
 *            | i2cInit()       | the other functions               | i2cClose()
 *     closed | open; closed    | stop the process with the         | stops the process
 *            | if it returns 1 | assertion "g_file != -1"          |
 *     open   | opens again (*) | work                              | closed
 *
 * (*) The earlier descriptor stays open and is lost. AuthChipFactory opens the device itself; a host calls i2cInit()
 * only if it works without a driver.
 *
 * A transaction holds the bus against every other thread and process that uses the library. It is not recursive: a
 * thread that starts a second one before it stopped the first waits for ever, and so does one that calls an operation
 * of AuthChipDriver inside a transaction.
 *
 * Threads:   i2cStartTransaction() may be called from any thread; i2cRead(), i2cWrite() and i2cStopTransaction() by the
 *            thread that holds the transaction. i2cInit() and i2cClose() run while no transaction is held.
 * Ownership: buffers stay the caller's and are not kept.
 * Units:     lengths are bytes; the address is the chip's 7-bit bus address.
 * Errors:    by the results; errno is what the last failing system call left. A refused message is tried again, 100
 *            times at most and 10 ms apart, so a call can last a second on a bus that answers at once.
 */

/**
 * Opens @p device (for example "/dev/i2c-1") and selects the chip at @p address on it. Returns 0, or 1 if the device
 * cannot be opened or refuses the address (not 7 bits, or taken by a kernel driver); it is closed then.
 */
AUTHCHIPDRIVER_API int i2cInit(const char* device, int address);

/// Waits without limit until this thread holds the bus; always returns true.
AUTHCHIPDRIVER_API bool i2cStartTransaction();

/**
 * Reads @p len bytes of register @p reg into @p buf, which has room for them. Returns how many bytes came (fewer than
 * @p len if the chip sent a short answer), 0 if the chip took no register number, or -1 if no read succeeded.
 * Requires: a transaction.
 */
AUTHCHIPDRIVER_API int i2cRead(AL::U8 reg, int len, AL::U8* buf);

/**
 * Writes @p len bytes from @p buf to register @p reg, in one message. Returns @p len, or on failure another value: the
 * result of the last attempt minus one (-2 if the bus refused it). A length of 0 sends the register number alone.
 * Requires: a transaction.
 */
AUTHCHIPDRIVER_API int i2cWrite(AL::U8 reg, int len, const AL::U8* buf);

/// Gives the bus back. Requires: a transaction.
AUTHCHIPDRIVER_API void i2cStopTransaction();

/// Closes the device. The library never calls it.
AUTHCHIPDRIVER_API void i2cClose();

}} // namespace VorelKestrel::ACD

#endif
