#ifndef AUTHCHIPDRIVER_AUTHCHIPDRIVER30_H
#define AUTHCHIPDRIVER_AUTHCHIPDRIVER30_H

#include <authchipdriver/authchipdriver.h>

namespace VorelKestrel { namespace ACD {

/**
 * The driver for chips of protocol 3.0 (device version 7). Hosts get it from AuthChipFactory and use it through
 * AuthChipDriver, which documents the operations.
 *
 * It holds no state: constructing and destroying it does not touch the bus. It logs through the log4cplus logger
 * "Wexfordmallow", and its TRACE lines call the host's dbglog_scopedFunction().
 */
class AUTHCHIPDRIVER_API AuthChipDriver30 : public AuthChipDriver
{
public:
    /// Does not touch the bus.
    AuthChipDriver30();
    /// Does not touch the bus.
    ~AuthChipDriver30() override;

    Error getDeviceID(AL::U32& id) override;
    Error newSignature(const AL::U8* challenge, int challengeLength, AL::U8** challengeResponse,
                       int* challengeResponseLength) override;
    Error getAccessoryCertificateDataLength(int& length) override;
    Error getAccessoryCertificateData(AL::U8* buffer, int& length) override;
    void getChallengeResponseDataMaximumLength(int& length) override;
    void getChallengeDataMaximumLength(int& length) override;
    int rawWrite(uint8_t reg, const void* data, int numBytes) override;
    int rawRead(uint8_t reg, const void* data, int numBytes) override;
};

}} // namespace VorelKestrel::ACD

#endif
