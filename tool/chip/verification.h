#ifndef TOOL_CHIP_VERIFICATION_H
#define TOOL_CHIP_VERIFICATION_H

#include <cstddef>
#include <string>

#include <openssl/types.h>

#include "common/hex.h"

namespace VorelKestrel::Tool {

/// How the chips of one protocol sign. The challenge stands where a digest would: the chip does not hash it again.
struct SignatureScheme
{
    const char* protocol;      // "2.0B"
    const char* keyType;       // as OpenSSL names it
    const char* keyGroup;      // of an elliptic curve key; null for others
    const EVP_MD* (*digest)(); // of which the challenge has the length
    const char* digestName;
    std::size_t challengeLength; // bytes
    std::size_t signatureLength; // bytes
    const char* description;
};

/// RSA, PKCS #1 v1.5; the 20 bytes of the challenge are taken as a SHA-1 digest.
extern const SignatureScheme kScheme20B;
/// ECDSA on P-256, r then s; the 32 bytes of the challenge are taken as a SHA-256 digest.
extern const SignatureScheme kScheme30;

/// Says why @p signature is no signature of @p challenge by the owner of @p key (which may be null: a key that cannot
/// be used). Empty if it is one.
std::string findFlaw(const SignatureScheme& scheme, EVP_PKEY* key, const Bytes& challenge, const Bytes& signature);

} // namespace VorelKestrel::Tool

#endif
