#ifndef TESTS_TOOL_CHIP_CREDENTIALS_H
#define TESTS_TOOL_CHIP_CREDENTIALS_H

#include <string>

#include <openssl/evp.h>

#include "common/hex.h"
#include "common/opensslpointer.h"
#include "tool/chip/verification.h"

using KeyPointer = VorelKestrel::OpensslPointer<EVP_PKEY, EVP_PKEY_free>;

/// A file of tests/tool/data.
VorelKestrel::Bytes readTestFile(const std::string& name);
/// The private key in a PEM file of tests/tool/data.
KeyPointer readTestKey(const std::string& name);
/// Signs as a chip of the generation does.
VorelKestrel::Bytes signAs(const VorelKestrel::Generation& generation, EVP_PKEY* key,
                           const VorelKestrel::Bytes& challenge);

#endif
