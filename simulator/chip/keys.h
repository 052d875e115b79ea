#ifndef SIMULATOR_CHIP_KEYS_H
#define SIMULATOR_CHIP_KEYS_H

#include <memory>
#include <string>

#include <openssl/evp.h>

#include "common/bytes.h"
#include "common/generations.h"

// Private keys, and what is signed with them. Every function throws CredentialsError.
namespace VorelKestrel::Simulator {

using Key = std::shared_ptr<EVP_PKEY>; // never null

/// A key of the kind that chips of the generation have.
Key newKey(const Generation& generation);
/// A key on a curve, by OpenSSL's name of it.
Key newEcKey(const char* curve);
Key newRsaKey(unsigned bits);
/// From a file in PEM or DER.
Key readKey(const std::string& path);

bool isKeyOf(const Generation& generation, const Key& key);
bool isRsa(const Key& key);

/// Signs the digest as OpenSSL does it: PKCS #1 v1.5, or ECDSA in DER.
Bytes signDigest(const Key& key, const char* digestName, const Bytes& digest);
/// The same as a chip does it, with r and then s, both as long as the curve's numbers.
Bytes signAsChip(const Key& key, const char* digestName, const Bytes& digest);

} // namespace VorelKestrel::Simulator

#endif
