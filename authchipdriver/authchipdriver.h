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
 * An authentication coprocessor, whatever its generation. AuthChipFactory hands out the one driver of the process.
 *
 * The typical exchange: getAccessoryCertificateDataLength(), getAccessoryCertificateData(),
 * getChallengeDataMaximumLength(), newSignature().
 *
 * Threads:   any thread may call any operation; each holds the bus of the whole machine for its exchange, and waits
 *            without limit for it. The lock is not recursive: none may be called between i2cStartTransaction() and
 *            i2cStopTransaction(), but for the six register helpers, which Require: a transaction of the caller's.
 * Ownership: buffers stay the caller's and are not kept; newSignature() allocates its answer for the caller.
 * Units:     lengths are bytes; registers are one byte, and values of several bytes are big-endian on the bus.
 * Errors:    ErrorI2C when the bus fails, after the retries of i2cRead() and i2cWrite(); outputs are then untouched
 *            unless an operation says otherwise. An exception (the allocator's, or one from the host's logging) leaves
 *            the operation with the bus released.
 */
class AUTHCHIPDRIVER_API AuthChipDriver
{
public:
    AuthChipDriver() = default;
    virtual ~AuthChipDriver();
    AuthChipDriver(const AuthChipDriver&) = delete;
    AuthChipDriver& operator=(const AuthChipDriver&) = delete;

    /// Reads the generation of the chip (register 0x00): 3 and 5 are protocol 2.0B, 7 is protocol 3.0.
    virtual Error getDeviceVersion(AL::U8& version);
    /// Reads the version of the chip's firmware (register 0x01).
    virtual Error getFirmwareVersion(AL::U8& version);
    /// Reads the major version of the authentication protocol (register 0x02).
    virtual Error getAuthenticationProtocolMajorVersion(AL::U8& version);
    /// Reads the minor version of the authentication protocol (register 0x03).
    virtual Error getAuthenticationProtocolMinorVersion(AL::U8& version);
    /// Reads the chip's device ID (register 0x04).
    virtual Error getDeviceID(AL::U32& id) = 0;

    /**
     * Has the chip sign a challenge (registers 0x20, 0x21, 0x10, 0x11, 0x12).
     *
     * @param challenge        The challenge.
     * @param challengeLength  Its length. Protocol 2.0B signs the first 20 bytes of a longer one, without a word;
     *                         protocol 3.0 takes 32 bytes and refuses another length with ErrorI2C.
     *                         Requires (2.0B): not negative; the process stops otherwise.
     * @param response         Receives a block from malloc that the caller frees with free(). After a failure there is
     *                         none; the pointer is then null or, on 2.0B before the answer was awaited, untouched.
     *                         Requires (2.0B): not null. Protocol 3.0 answers null with ErrorInvalid.
     * @param responseLength   Receives the length of the answer, 0 to 65535, as the chip tells it (register 0x11).
     *                         Requires: not null.
     * @return ErrorInvalid also when the chip's status says that it did not sign.
     */
    virtual Error newSignature(const AL::U8* challenge, int challengeLength, AL::U8** response,
                               int* responseLength) = 0;

    /// Reads the length of the accessory certificate, 0 to 65535 (register 0x30). When the result is not Success,
    /// @p length has a value without meaning.
    virtual Error getAccessoryCertificateDataLength(int& length) = 0;
    /**
     * Reads the accessory certificate, in pages of 128 bytes (registers from 0x31).
     *
     * @param buffer          Receives the bytes; has room for @p length of them.
     * @param[in,out] length  How many bytes to read, at most 1920 on protocol 2.0B and 1280 on 3.0. On ErrorI2C it
     *                        tells afterwards how many bytes came.
     */
    virtual Error getAccessoryCertificateData(AL::U8* buffer, int& length) = 0;

    /// Tells how long an answer of newSignature() can be: 128 on protocol 2.0B, 64 on 3.0. Does not touch the bus.
    virtual void getChallengeResponseDataMaximumLength(int& length) = 0;
    /// Tells how long a challenge can be: 20 on protocol 2.0B, 32 on 3.0. Does not touch the bus.
    virtual void getChallengeDataMaximumLength(int& length) = 0;

    /// Writes @p length bytes from @p data to any register, in a transaction of its own. Returns what i2cWrite()
    /// returns: @p length on success.
    virtual int rawWrite(uint8_t reg, const void* data, int length) = 0;
    /// Reads @p length bytes of any register, in a transaction of its own. Returns what i2cRead() returns: @p length
    /// on success. The bytes are written to @p data, which must be writable in spite of its type.
    virtual int rawRead(uint8_t reg, const void* data, int length) = 0;

    /// Reads one byte. Requires: a transaction. The low eight bits of @p reg are the register.
    virtual Error readByte(int reg, AL::U8& value);
    /// Reads two bytes, as readByte().
    virtual Error readWord(int reg, AL::U16& value);
    /// Reads four bytes, as readByte().
    virtual Error readDWord(int reg, AL::U32& value);
    /// Writes one byte. Requires: a transaction; @p value from 0 to 255, or the process stops.
    virtual Error writeByte(int reg, int value);
    /// Writes two bytes, the first of them always 0: of @p value only the low eight bits are sent.
    /// Requires: a transaction; @p value from 0 to 65535, or the process stops.
    virtual Error writeWord(int reg, int value);
    /// Writes four bytes, the first three always 0: of @p value only the low eight bits are sent.
    /// Requires: a transaction.
    virtual Error writeDWord(int reg, int value);
};

}} // namespace VorelKestrel::ACD

#endif
