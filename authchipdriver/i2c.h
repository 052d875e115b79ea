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
 * A transaction keeps every other thread and process that uses the library off the bus. It is not recursive. A thread
 * that starts a second one before it stopped the first waits for ever. So does one that calls an operation of
 * AuthChipDriver inside a transaction.
 *
 * Threads:   i2cStartTransaction() may be called from any thread; i2cRead(), i2cWrite() and i2cStopTransaction() by the
 *            thread that holds the transaction. i2cInit() and i2cClose() run while no transaction is held.
 * Ownership: buffers stay the caller's and are not kept.
 * Units:     lengths are bytes; the address is the chip's 7-bit bus address.
 * Errors:    by the results; errno is what the last failing system call left. Each message is tried up to 100 times.
 *            After a refused write, also of the register number that begins a read, comes a pause of 10 ms; a failed
 *            read is repeated at once. So a call can last a second on a bus that answers at once.
 *
 * @par Example
 * @snippet reference/i2c.cpp example
 */

/**
 * Opens the device and selects the chip on it.
 *
 * @param device   The path of the i2c-dev node, for example "/dev/i2c-1".
 * @param address  The chip's 7-bit address.
 * @return 0; 1 if the device cannot be opened or refuses the address (not 7 bits, or a kernel driver has it). The
 *         device is then closed.
 */
AUTHCHIPDRIVER_API int i2cInit(const char* device, int address);

/**
 * Takes the bus for this thread. Waits for it without limit.
 *
 * @return Always true.
 */
AUTHCHIPDRIVER_API bool i2cStartTransaction();

/**
 * Reads a register. Requires: a transaction.
 *
 * @param reg  The register.
 * @param len  How many bytes.
 * @param buf  Receives the bytes; has room for @p len of them.
 * @return How many bytes came, fewer than @p len if the answer was short; 0 if the chip refused the register number
 *         100 times; -1 if 100 reads failed.
 */
AUTHCHIPDRIVER_API int i2cRead(AL::U8 reg, int len, AL::U8* buf);

/**
 * Writes a register, in one message. Requires: a transaction.
 *
 * @param reg  The register.
 * @param len  How many bytes; 0 sends the register number alone.
 * @param buf  The bytes.
 * @return @p len; after 100 failed attempts another value, the result of the last one minus one (-2 for a refusal).
 */
AUTHCHIPDRIVER_API int i2cWrite(AL::U8 reg, int len, const AL::U8* buf);

/// Releases the bus. Requires: a transaction.
AUTHCHIPDRIVER_API void i2cStopTransaction();

/// Closes the device. The library never calls it.
AUTHCHIPDRIVER_API void i2cClose();

}} // namespace VorelKestrel::ACD

#endif
