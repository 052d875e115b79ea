#ifndef SIMULATOR_CHIP_CERTIFICATES_H
#define SIMULATOR_CHIP_CERTIFICATES_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <openssl/types.h>

#include "common/bytes.h"
#include "simulator/chip/keys.h"

// Certificates of chips and their issuers. Every function throws CredentialsError.
namespace VorelKestrel::Simulator {

using Certificate = std::shared_ptr<X509>;

constexpr long kSecondsOfADay = 24L * 60 * 60;

/// The contents of a certificate.
struct CertificateText
{
    std::string name = "Simulated authentication coprocessor"; // common name of the subject
    long notBefore = 0;                                        // in seconds from now
    long notAfter = 10L * 365 * kSecondsOfADay;
    const char* basicConstraints = nullptr; // in OpenSSL's syntax; null: none
    unsigned char serialByte = 0x5a;        // repeated in the serial number; below 0x80, so that it is positive
    std::size_t serialLength = 16;
    std::size_t fillerLength = 0; // of a comment that only adds length
};

/// Signs certificates.
struct Issuer
{
    Key key;
    Certificate certificate;
};

Certificate makeSelfSigned(const Key& key, const CertificateText& text);
Certificate makeIssued(const Key& key, const CertificateText& text, const Issuer& issuer);
/// Reads files in PEM or DER.
Issuer readIssuer(const std::string& certificateFile, const std::string& keyFile);

/// Packs certificates as chips store them: into a DER PKCS #7 container with nothing else.
Bytes contained(const std::vector<Certificate>& certificates);
/// A chip's certificate in a container of exactly @p length bytes (0: any length). @p issuer null: self-signed.
Bytes makeContained(const Key& key, const Issuer* issuer, std::size_t length);
/// Reads a certificate of the key from a file, PEM or DER, bare or in a container, which is kept unchanged.
Bytes readContained(const std::string& path, const Key& key);

} // namespace VorelKestrel::Simulator

#endif
