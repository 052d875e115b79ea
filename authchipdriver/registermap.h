#ifndef AUTHCHIPDRIVER_REGISTERMAP_H
#define AUTHCHIPDRIVER_REGISTERMAP_H

#include <abstractionlibrary/types.h>

namespace VorelKestrel { namespace ACD {

// The chip's registers. Numbers are one byte; values of several bytes are big-endian on the bus.
constexpr AL::U8 kRegisterDeviceVersion = 0x00;
constexpr AL::U8 kRegisterFirmwareVersion = 0x01;
constexpr AL::U8 kRegisterProtocolMajorVersion = 0x02;
constexpr AL::U8 kRegisterProtocolMinorVersion = 0x03;
constexpr AL::U8 kRegisterDeviceId = 0x04;
constexpr AL::U8 kRegisterControlAndStatus = 0x10;
constexpr AL::U8 kRegisterResponseLength = 0x11; // of the signature, which protocol 3.0 calls challenge response
constexpr AL::U8 kRegisterResponse = 0x12;
constexpr AL::U8 kRegisterChallengeLength = 0x20;
constexpr AL::U8 kRegisterChallenge = 0x21;
constexpr AL::U8 kRegisterCertificateLength = 0x30; // page N of the certificate is register 0x30 + N, N from 1

// The control and status register: what is written to it, and what is read from it.
constexpr AL::U8 kCommandGenerateResponse = 1;
constexpr AL::U8 kResultGenerated = 1;

/// The result of the last command: bits 6 to 4 of the status byte. The other bits say nothing about it.
constexpr AL::U8 resultOfStatus(AL::U8 status)
{
    return static_cast<AL::U8>((status >> 4U) & 7U);
}

/// One row of the register map: what a register holds and how many bytes one access moves.
struct Register
{
    AL::U8 number;
    int width; // bytes; 0 where another register or the caller tells the length
    const char* name;
    const char* shortName; // for people
};

constexpr Register kRegisterMap[] = {
    {kRegisterDeviceVersion, 1, "device version", "device version"},
    {kRegisterFirmwareVersion, 1, "firmware version", "firmware version"},
    {kRegisterProtocolMajorVersion, 1, "authentication protocol major version", "protocol major version"},
    {kRegisterProtocolMinorVersion, 1, "authentication protocol minor version", "protocol minor version"},
    {kRegisterDeviceId, 4, "device ID", "device ID"},
    {kRegisterControlAndStatus, 1, "authentication control and status", "status"},
    {kRegisterResponseLength, 2, "challenge response data length", "signature length"},
    {kRegisterResponse, 0, "challenge response data", "signature"},
    {kRegisterChallengeLength, 2, "challenge data length", "challenge length"},
    {kRegisterChallenge, 0, "challenge data", "challenge"},
    {kRegisterCertificateLength, 2, "accessory certificate data length", "certificate length"},
};

constexpr int kCertificatePageSize = 128; // bytes

/// The register that holds a page of the certificate; pages count from 1.
constexpr AL::U8 certificatePageRegister(int page)
{
    return static_cast<AL::U8>(kRegisterCertificateLength + page);
}

}} // namespace VorelKestrel::ACD

#endif
