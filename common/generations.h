#ifndef COMMON_GENERATIONS_H
#define COMMON_GENERATIONS_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace VorelKestrel {

/// The properties of one generation of the chip. Lengths are bytes.
struct Generation
{
    const char* protocol;              // "2.0B"
    std::uint8_t protocolMajorVersion; // as in the chip's registers
    std::uint8_t protocolMinorVersion;
    std::size_t challengeLength; // the length of the digest
    std::size_t responseLength;
    int certificatePages;
    bool hostWritesLengths; // whether the host writes challenge and response lengths, or reads them from the chip

    // How the chip signs. The challenge is used as the digest: the chip does not hash it.
    const char* keyName;  // "RSA-1024"
    const char* keyType;  // OpenSSL's name
    const char* keyGroup; // OpenSSL's name of the curve; null for a key without one
    unsigned keyBits;
    const char* digest; // the name for OpenSSL and for people
    const char* scheme; // in words
};

inline constexpr Generation kGeneration20B = {
    "2.0B", 2, 0, 20, 128, 15, true, "RSA-1024", "RSA", nullptr, 1024, "SHA-1", "RSA with SHA-1, PKCS #1 v1.5",
};
inline constexpr Generation kGeneration30 = {
    "3.0", 3, 0, 32, 64, 10, false, "P-256", "EC", "prime256v1", 256, "SHA-256", "ECDSA P-256 with SHA-256, r then s",
};

/// A device version and its protocol.
struct DeviceVersion
{
    std::uint8_t number;
    const char* protocol;
    const Generation* generation; // null: the library has no driver for it
};

/// Every known device version, in ascending order. The library's factory has its own switch, and the dissector in
/// capture/wireshark/ its own table; tests compare both with this one.
inline constexpr DeviceVersion kDeviceVersions[] = {
    {1, "1.0", nullptr},
    {2, "2.0A", nullptr},
    {3, kGeneration20B.protocol, &kGeneration20B},
    {5, kGeneration20B.protocol, &kGeneration20B},
    {7, kGeneration30.protocol, &kGeneration30},
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
