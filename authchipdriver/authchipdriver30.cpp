#include "authchipdriver/authchipdriver30.h"

#include <algorithm>

#include <log4cplus/logger.h>

#include "authchipdriver/bustransaction.h"
#include "authchipdriver/drivertrace.h"
#include "authchipdriver/registermap.h"
#include "authchipdriver/responseblock.h"

// Deliberate: the drivers of the two generations are twins without a class between, each with its own copy of every
// operation, so that a change to one cannot reach the other. Keep them in step: the same functions in the same order
// and the same line breaks.
//
// Log statements stand in the operation itself and not in helpers: each record carries the operation's signature.

namespace VorelKestrel { namespace ACD {
namespace {

constexpr int kChallengeMaximumLength = 32; // also the only length that the chip signs
constexpr int kChallengeResponseMaximumLength = 64;
constexpr int kLastCertificatePage = 10;

log4cplus::Logger g_logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT(kLoggerName));

} // namespace

AuthChipDriver30::AuthChipDriver30()
{
    TRACE_ENTER("");
    TRACE_LEAVE("");
}

// Deliberate: no trace lines here, unlike the constructor.
AuthChipDriver30::~AuthChipDriver30() = default;

Error AuthChipDriver30::getDeviceID(AL::U32& id)
{
    TRACE_ENTER("Reading device ID");
    const BusTransaction transaction;
    if (!transaction.started()) {
        LOG4CPLUS_ERROR(g_logger, "I2C transaction failed");
        return ErrorI2C;
    }
    const Error error = readDWord(kRegisterDeviceId, id);
    if (error != Success)
        LOG4CPLUS_ERROR(g_logger, "Failed to read device ID, error=" << static_cast<int>(error));
    else
        LOG4CPLUS_DEBUG(g_logger, "Device ID: 0x" << std::hex << id << std::dec);
    TRACE_LEAVE("result=" << static_cast<int>(error));
    return error;
}

// Deliberate: the failure paths write no exit line, so a trace of a failed call shows "Enter" without "Leave".
Error AuthChipDriver30::newSignature(const AL::U8* challenge, int challengeLength, AL::U8** challengeResponse,
                                     int* challengeResponseLength)
{
    TRACE_ENTER("challengeLength=" << challengeLength);
    BusTransaction transaction;
    if (!transaction.started()) {
        LOG4CPLUS_ERROR(g_logger, "I2C transaction failed");
        return ErrorI2C;
    }
    if (challengeResponse == nullptr) {
        LOG4CPLUS_ERROR(g_logger, "Invalid parameter: challengeResponse is NULL");
        return ErrorInvalid;
    }
    *challengeResponse = nullptr;
    if (challengeLength != kChallengeMaximumLength) {
        LOG4CPLUS_ERROR(g_logger, "Invalid challenge length: expected=" << kChallengeMaximumLength
                                                                        << ", actual=" << challengeLength);
        return ErrorI2C; // Deliberate: not ErrorInvalid; hosts know a wrong length by this code.
    }
    if (i2cWrite(kRegisterChallenge, kChallengeMaximumLength, challenge) != kChallengeMaximumLength) {
        LOG4CPLUS_ERROR(g_logger, "Failed to write challenge data");
        return ErrorI2C;
    }
    LOG4CPLUS_DEBUG(g_logger, "Challenge data written successfully");
    AL::U16 acceptedLength = 0;
    Error error = readWord(kRegisterChallengeLength, acceptedLength);
    if (error != Success) {
        LOG4CPLUS_ERROR(g_logger, "Failed to read challenge length, error=" << static_cast<int>(error));
        return error;
    }
    if (acceptedLength != kChallengeMaximumLength) {
        LOG4CPLUS_ERROR(g_logger, "Invalid challenge length returned: expected=" << kChallengeMaximumLength
                                                                                 << ", actual=" << acceptedLength);
        return ErrorI2C; // Deliberate: not ErrorInvalid, as above.
    }
    error = writeByte(kRegisterControlAndStatus, kCommandGenerateResponse);
    if (error != Success) {
        LOG4CPLUS_ERROR(g_logger, "Failed to write status for new signature, error=" << static_cast<int>(error));
        return error;
    }
    // The chip refuses its address while it signs; the retries of the status read are the only waiting.
    AL::U8 status = 0;
    error = readByte(kRegisterControlAndStatus, status);
    if (error != Success) {
        LOG4CPLUS_ERROR(g_logger, "Failed to read status, error=" << static_cast<int>(error));
        return error;
    }
    if (resultOfStatus(status) != kResultGenerated) {
        LOG4CPLUS_ERROR(g_logger, "Invalid status result: " << static_cast<unsigned>(status));
        return ErrorInvalid;
    }
    AL::U16 length = 0;
    error = readWord(kRegisterResponseLength, length);
    if (error != Success) {
        LOG4CPLUS_ERROR(g_logger, "Failed to read challenge response length, error=" << static_cast<int>(error));
        return error;
    }
    LOG4CPLUS_DEBUG(g_logger, "Challenge response length: " << length);
    *challengeResponseLength = length;
    ResponseBlock block(challengeResponse, length);
    if (i2cRead(kRegisterResponse, length, block.data()) != length) {
        LOG4CPLUS_ERROR(g_logger, "Failed to read challenge response data");
        return ErrorI2C;
    }
    LOG4CPLUS_DEBUG(g_logger, "Successfully read challenge response");
    TRACE_LEAVE("result=Success"); // Deliberate: the word, where the twin writes the number.
    transaction.stop();            // before the caller gets the block: its line may throw, and the block is freed then
    block.handOver();
    return Success;
}

Error AuthChipDriver30::getAccessoryCertificateDataLength(int& length)
{
    TRACE_ENTER("");
    const BusTransaction transaction;
    if (!transaction.started()) {
        LOG4CPLUS_ERROR(g_logger, "I2C transaction failed");
        return ErrorI2C;
    }
    AL::U16 certificateLength = 0;
    const Error error = readWord(kRegisterCertificateLength, certificateLength);
    if (error != Success)
        LOG4CPLUS_ERROR(g_logger, "Failed to read certificate data length, error=" << static_cast<int>(error));
    else
        LOG4CPLUS_DEBUG(g_logger, "Certificate data length: " << certificateLength);
    length = certificateLength; // Deliberate: after a failed read as well; the caller looks at the result first.
    TRACE_LEAVE("result=" << static_cast<int>(error));
    return error;
}

Error AuthChipDriver30::getAccessoryCertificateData(AL::U8* buffer, int& length)
{
    TRACE_ENTER("requested length=" << length);
    const BusTransaction transaction;
    if (!transaction.started()) {
        LOG4CPLUS_ERROR(g_logger, "I2C transaction failed");
        return ErrorI2C;
    }
    int remaining = length; // Deliberate: not refused when negative; the bus is asked for that many bytes.
    int page = 1;
    int total = 0;
    while (remaining != 0) {
        const int toRead = std::min(remaining, kCertificatePageSize);
        LOG4CPLUS_DEBUG(g_logger, "Reading page " << page << ", bytes=" << toRead);
        const int n = i2cRead(certificatePageRegister(page), toRead, buffer + total);
        ++page;
        total += n;
        if (page > kLastCertificatePage || n != toRead) {
            // Deliberate: the page is one more than the page just read, and the line is also written when the last
            // page came in full; whether the read failed is decided below.
            LOG4CPLUS_ERROR(g_logger, "Read failed: read=" << n << ", toRead=" << toRead << ", page=" << page);
            break;
        }
        remaining -= n;
    }
    if (total != length) {
        LOG4CPLUS_ERROR(g_logger, "Incomplete read: expected=" << length << ", actual=" << total);
        length = total;
        TRACE_LEAVE("result=ErrorI2C"); // Deliberate: the word, where getDeviceID() writes the number.
        return ErrorI2C;
    }
    LOG4CPLUS_DEBUG(g_logger, "Successfully read all data: " << total << " bytes");
    TRACE_LEAVE("result=Success");
    return Success;
}

void AuthChipDriver30::getChallengeResponseDataMaximumLength(int& length)
{
    TRACE_ENTER("");
    length = kChallengeResponseMaximumLength;
    LOG4CPLUS_DEBUG(g_logger, "Maximum length: " << length);
    TRACE_LEAVE("");
}

void AuthChipDriver30::getChallengeDataMaximumLength(int& length)
{
    TRACE_ENTER("");
    length = kChallengeMaximumLength;
    LOG4CPLUS_DEBUG(g_logger, "Maximum length: " << length);
    TRACE_LEAVE("");
}

int AuthChipDriver30::rawWrite(uint8_t reg, const void* data, int numBytes)
{
    TRACE_ENTER("reg=0x" << std::hex << static_cast<unsigned>(reg) << std::dec << ", numBytes=" << numBytes);
    // Deliberate: the transfer is made whether or not the transaction started.
    const BusTransaction transaction;
    const int count = i2cWrite(reg, numBytes, static_cast<const AL::U8*>(data));
    if (count != numBytes)
        LOG4CPLUS_ERROR(g_logger, "Write failed: expected=" << numBytes << ", actual=" << count);
    TRACE_LEAVE("result=" << count);
    return count;
}

int AuthChipDriver30::rawRead(uint8_t reg, const void* data, int numBytes)
{
    TRACE_ENTER("reg=0x" << std::hex << static_cast<unsigned>(reg) << std::dec << ", numBytes=" << numBytes);
    // Deliberate: the transfer is made whether or not the transaction started.
    const BusTransaction transaction;
    // Deliberate: the interface takes the buffer as const, and the chip's bytes are written into it all the same.
    const int count = i2cRead(reg, numBytes, static_cast<AL::U8*>(const_cast<void*>(data)));
    if (count != numBytes)
        LOG4CPLUS_ERROR(g_logger, "Read failed: expected=" << numBytes << ", actual=" << count);
    TRACE_LEAVE("result=" << count);
    return count;
}

}} // namespace VorelKestrel::ACD
