#ifndef AUTHCHIPDRIVER_AUTHCHIPDRIVER_H
#define AUTHCHIPDRIVER_AUTHCHIPDRIVER_H

#include <cstdint>

#include <abstractionlibrary/export.h>
#include <abstractionlibrary/types.h>

namespace VorelKestrel { namespace ACD {

/// The result of a chip operation.
enum Error
{
    Success = 0,     ///< the operation completed
    ErrorI2C = 1,    ///< a bus transfer failed or moved fewer bytes than asked
    ErrorInvalid = 2 ///< a parameter, a length or a status that the chip returned is not acceptable
};

/**
 * An authentication coprocessor of any generation. AuthChipFactory hands out the only driver of the process.
 *
 * A typical authentication:
 *
 * @msc
 *   verifier, host, driver, chip;
 *   host -> driver [label="getAccessoryCertificateDataLength()"];
 *   driver -> chip [label="read 0x30"];
 *   host -> driver [label="getAccessoryCertificateData()"];
 *   driver -> chip [label="read 0x31, 0x32, ..."];
 *   host -> verifier [label="certificate"];
 *   verifier -> host [label="challenge"];
 *   host -> driver [label="newSignature()"];
 *   driver -> chip [label="write 0x21: challenge"];
 *   driver -> chip [label="write 0x10: start"];
 *   chip note chip [label="signs"];
 *   driver -> chip [label="read 0x10: status"];
 *   driver -> chip [label="read 0x11, 0x12: signature"];
 *   driver -> host [label="block of malloc"];
 *   host -> verifier [label="signature"];
 *   verifier note verifier [label="checks both"];
 * @endmsc
 *
 * Threads:   any thread may call any operation. Each holds the bus of the whole machine for its exchange, and waits for
 *            it without limit. The lock is not recursive: between i2cStartTransaction() and i2cStopTransaction() call
 *            only the six register helpers, which Require: a transaction of the caller's.
 * Ownership: buffers stay the caller's and are not kept. newSignature() allocates its answer for the caller.
 * Units:     lengths are bytes. Registers are one byte; values of several bytes have the highest byte first on the bus.
 * Errors:    ErrorI2C if the bus fails, after the retries of i2cRead() and i2cWrite(). Outputs are then untouched
 *            unless an operation says otherwise. An exception (the allocator's, or one from the host's logging) leaves
 *            the operation with the bus released.
 *
 * @par Example
 * @snippet reference/authchipdriver.cpp detection
 * @snippet reference/authchipdriver.cpp certificate
 * @snippet reference/authchipdriver.cpp signature
 */
class AUTHCHIPDRIVER_API AuthChipDriver
{
public:
    /// Does not touch the bus.
    AuthChipDriver() = default;
    /// Does not touch the bus, and does not close the node.
    virtual ~AuthChipDriver();
    AuthChipDriver(const AuthChipDriver&) = delete;
    AuthChipDriver& operator=(const AuthChipDriver&) = delete;

    /**
     * Reads the device version (register 0x00), which tells the chip's generation.
     *
     * @param version  Receives it: 3 and 5 are protocol 2.0B, 7 is protocol 3.0.
     * @return Success or ErrorI2C.
     */
    virtual Error getDeviceVersion(AL::U8& version);
    /**
     * Reads the version of the chip's firmware (register 0x01).
     *
     * @param version  Receives it.
     * @return Success or ErrorI2C.
     */
    virtual Error getFirmwareVersion(AL::U8& version);
    /**
     * Reads the major version of the authentication protocol (register 0x02).
     *
     * @param version  Receives it.
     * @return Success or ErrorI2C.
     */
    virtual Error getAuthenticationProtocolMajorVersion(AL::U8& version);
    /**
     * Reads the minor version of the authentication protocol (register 0x03).
     *
     * @param version  Receives it.
     * @return Success or ErrorI2C.
     */
    virtual Error getAuthenticationProtocolMinorVersion(AL::U8& version);
    /**
     * Reads the chip's device ID (register 0x04).
     *
     * @param id  Receives it.
     * @return Success or ErrorI2C.
     */
    virtual Error getDeviceID(AL::U32& id) = 0;

    /**
     * Has the chip sign a challenge (registers 0x20, 0x21, 0x10, 0x11, 0x12).
     *
     * @param challenge        The challenge.
     * @param challengeLength  Its length. Protocol 2.0B signs the first 20 bytes of a longer one and does not tell.
     *                         Protocol 3.0 takes 32 bytes and refuses another length with ErrorI2C.
     *                         Requires (2.0B): not negative; the process stops otherwise.
     * @param response         Receives a block from malloc that the caller frees with free(). After a failure there is
     *                         no block. Protocol 3.0 then leaves null here; protocol 2.0B leaves null only if the
     *                         answer itself could not be read, and does not touch the pointer after an earlier failure.
     *                         So set it to null before the call, or free it after Success only.
     *                         Requires (2.0B): not null. Protocol 3.0 answers null with ErrorInvalid.
     * @param responseLength   Receives the length of the answer as the chip tells it (register 0x11), 0 to 65535.
     *                         Untouched if the chip could not be asked for it. Requires: not null.
     * @return Success; ErrorI2C if the bus fails; ErrorInvalid if the chip's status says that it did not sign. What an
     *         overridden register helper returns is returned as it is.
     */
    virtual Error newSignature(const AL::U8* challenge, int challengeLength, AL::U8** response,
                               int* responseLength) = 0;

    /**
     * Reads the length of the accessory certificate (register 0x30).
     *
     * @param length  Receives it, 0 to 65535. After a failure it has a value without meaning.
     * @return Success or ErrorI2C.
     */
    virtual Error getAccessoryCertificateDataLength(int& length) = 0;
    /**
     * Reads the accessory certificate, in pages of 128 bytes (registers from 0x31).
     *
     * @param buffer          Receives the bytes; has room for @p length of them.
     * @param[in,out] length  How many bytes to read, at most 1920 on protocol 2.0B and 1280 on 3.0. After ErrorI2C the
     *                        sum of what the transfers returned, also of one that returned 0 or -1: for example 127
     *                        after a page of 128 bytes and a failed read.
     * @return Success or ErrorI2C.
     */
    virtual Error getAccessoryCertificateData(AL::U8* buffer, int& length) = 0;

    /**
     * Tells how long an answer of newSignature() can be. Does not touch the bus.
     *
     * @param length  Receives 128 on protocol 2.0B, 64 on 3.0.
     */
    virtual void getChallengeResponseDataMaximumLength(int& length) = 0;
    /**
     * Tells how long a challenge can be. Does not touch the bus.
     *
     * @param length  Receives 20 on protocol 2.0B, 32 on 3.0.
     */
    virtual void getChallengeDataMaximumLength(int& length) = 0;

    /**
     * Writes any register, in a transaction of its own.
     *
     * @param reg     The register.
     * @param data    The bytes.
     * @param length  How many.
     * @return What i2cWrite() returns: @p length on success.
     */
    virtual int rawWrite(uint8_t reg, const void* data, int length) = 0;
    /**
     * Reads any register, in a transaction of its own.
     *
     * @param reg     The register.
     * @param data    Receives the bytes; has room for @p length of them. It must be writable in spite of its type.
     * @param length  How many.
     * @return What i2cRead() returns: @p length on success.
     */
    virtual int rawRead(uint8_t reg, const void* data, int length) = 0;

    /**
     * Reads one byte. Requires: a transaction.
     *
     * @param reg    The register; its low eight bits count.
     * @param value  Receives the byte; untouched after a failure.
     * @return Success or ErrorI2C.
     */
    virtual Error readByte(int reg, AL::U8& value);
    /**
     * Reads two bytes, the highest first. Requires: a transaction.
     *
     * @param reg    The register; its low eight bits count.
     * @param value  Receives the number; untouched after a failure.
     * @return Success or ErrorI2C.
     */
    virtual Error readWord(int reg, AL::U16& value);
    /**
     * Reads four bytes, the highest first. Requires: a transaction.
     *
     * @param reg    The register; its low eight bits count.
     * @param value  Receives the number; untouched after a failure.
     * @return Success or ErrorI2C.
     */
    virtual Error readDWord(int reg, AL::U32& value);
    /**
     * Writes one byte. Requires: a transaction.
     *
     * @param reg    The register; its low eight bits count.
     * @param value  The byte. Requires: 0 to 255, or the process stops.
     * @return Success or ErrorI2C.
     */
    virtual Error writeByte(int reg, int value);
    /**
     * Writes two bytes, the first of them always 0: only the low eight bits of the value are sent.
     * Requires: a transaction.
     *
     * @param reg    The register; its low eight bits count.
     * @param value  The number. Requires: 0 to 65535, or the process stops.
     * @return Success or ErrorI2C.
     */
    virtual Error writeWord(int reg, int value);
    /**
     * Writes four bytes, the first three always 0: only the low eight bits of the value are sent.
     * Requires: a transaction.
     *
     * @param reg    The register; its low eight bits count.
     * @param value  The number.
     * @return Success or ErrorI2C.
     */
    virtual Error writeDWord(int reg, int value);
};

}} // namespace VorelKestrel::ACD

#endif
