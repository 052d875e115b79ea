#ifndef SIMULATOR_CHIP_KEYS_H
#define SIMULATOR_CHIP_KEYS_H

#include <memory>
#include <string>

#include <openssl/evp.h>

#include "common/bytes.h"
#include "common/generations.h"

// Private keys and signatures. Every function throws CredentialsError.
namespace VorelKestrel::Simulator {

using Key = std::shared_ptr<EVP_PKEY>; // never null

/// A new key of the generation's kind.
Key newKey(const Generation& generation);
/// A new key on the curve with this OpenSSL name.
Key newEcKey(const char* curve);
Key newRsaKey(unsigned bits);
/// Reads a file in PEM or DER.
Key readKey(const std::string& path);

bool isKeyOf(const Generation& generation, const Key& key);
bool isRsa(const Key& key);

/// Signs the digest in OpenSSL's form: PKCS #1 v1.5, or ECDSA in DER.
Bytes signDigest(const Key& key, const char* digestName, const Bytes& digest);
/// Signs in the chip's form: for ECDSA r and then s, both with the length of the curve.
Bytes signAsChip(const Key& key, const char* digestName, const Bytes& digest);

} // namespace VorelKestrel::Simulator

#endif
