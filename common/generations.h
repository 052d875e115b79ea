#ifndef COMMON_GENERATIONS_H
#define COMMON_GENERATIONS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "authchipdriver/registermap.h"

namespace VorelKestrel {

/// What sets one generation of the chip apart from another. Lengths are bytes.
struct Generation
{
    const char* protocol;              // "2.0B"
    std::uint8_t protocolMajorVersion; // as the chip's registers report it
    std::uint8_t protocolMinorVersion;
    std::size_t challengeLength; // the length of the digest
    std::size_t responseLength;
    int certificatePages;
    bool hostWritesLengths; // the host announces challenge and response lengths; otherwise the chip tells them

    // How the chip signs. The challenge takes the place of a digest: the chip does not hash it again.
    const char* keyName;  // "RSA-1024"
    const char* keyType;  // OpenSSL's name
    const char* keyGroup; // OpenSSL's name of the curve; null for a key without one
    unsigned keyBits;
    const char* digest; // OpenSSL knows it by this name, and so do people
    const char* scheme; // in words
};

inline constexpr Generation kGeneration20B = {
    "2.0B", 2, 0, 20, 128, 15, true, "RSA-1024", "RSA", nullptr, 1024, "SHA-1", "RSA with SHA-1, PKCS #1 v1.5",
};
inline constexpr Generation kGeneration30 = {
    "3.0", 3, 0, 32, 64, 10, false, "P-256", "EC", "prime256v1", 256, "SHA-256", "ECDSA P-256 with SHA-256, r then s",
};

/// Which protocol the chips of one device version speak.
struct DeviceVersion
{
    std::uint8_t number;
    const char* protocol;
    const Generation* generation; // null: the library has no driver for it
};

/// Every device version that is known, in ascending order. The library's factory decides with a switch of its own; a
/// test compares the two.
inline constexpr DeviceVersion kDeviceVersions[] = {
    {ACD::kDeviceVersion10, "1.0", nullptr},
    {ACD::kDeviceVersion20A, "2.0A", nullptr},
    {ACD::kDeviceVersion20B, kGeneration20B.protocol, &kGeneration20B},
    {ACD::kDeviceVersion20BLater, kGeneration20B.protocol, &kGeneration20B},
    {ACD::kDeviceVersion30, kGeneration30.protocol, &kGeneration30},
};

/// Null if the device version is unknown.
constexpr const DeviceVersion* findDeviceVersion(std::uint8_t number)
{
    for (const DeviceVersion& version : kDeviceVersions) {
        if (version.number == number)
            return &version;
    }
    return nullptr;
}

/// Null if the library has no driver for the device version. A loop of its own: for GCC with
/// UndefinedBehaviorSanitizer, what compares findDeviceVersion() with null is no constant.
constexpr const Generation* findGeneration(std::uint8_t deviceVersion)
{
    for (const DeviceVersion& version : kDeviceVersions) {
        if (version.number == deviceVersion)
            return version.generation;
    }
    return nullptr;
}

/// The chips for which the library has a driver: "2.0B (device version 3 or 5) or 3.0 (device version 7)".
std::string supportedProtocols();

} // namespace VorelKestrel

#endif
