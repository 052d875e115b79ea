#ifndef SIMULATOR_CHIP_GENERATION_H
#define SIMULATOR_CHIP_GENERATION_H

#include <cstddef>

#include <abstractionlibrary/types.h>

namespace VorelKestrel::Simulator {

/// What sets one generation of the chip apart from another. Lengths are bytes.
struct Generation
{
    const char* name;
    const char* keyName; // the kind of key that it signs with
    AL::U8 protocolMajorVersion;
    AL::U8 protocolMinorVersion;
    std::size_t challengeLength;
    std::size_t responseLength;
    int certificatePages;
    bool hostWritesLengths; // the host announces challenge and response lengths; otherwise the chip tells them
};

extern const Generation kGeneration20B; // RSA-1024 over a SHA-1 digest, PKCS #1 v1.5
extern const Generation kGeneration30;  // ECDSA P-256 over a SHA-256 digest, r then s

/// The generation that a chip of this device version belongs to: 3.0 from 7 on, 2.0B below.
const Generation& generationOf(AL::U8 deviceVersion);

/// The most certificate that a chip of this generation can hold.
std::size_t certificateMaximumLength(const Generation& generation);

} // namespace VorelKestrel::Simulator

#endif
