#ifndef TESTS_TOOL_CREDENTIALS_H
#define TESTS_TOOL_CREDENTIALS_H

#include <string>

#include <openssl/evp.h>

#include "tool/hex.h"
#include "tool/opensslpointer.h"
#include "tool/verification.h"

using KeyPointer = VorelKestrel::Tool::OpensslPointer<EVP_PKEY, EVP_PKEY_free>;

/// A file of tests/tool/data.
VorelKestrel::Tool::Bytes readTestFile(const std::string& name);
/// The private key in a PEM file of tests/tool/data.
KeyPointer readTestKey(const std::string& name);
/// Signs as a chip of the scheme does.
VorelKestrel::Tool::Bytes signAs(const VorelKestrel::Tool::SignatureScheme& scheme, EVP_PKEY* key,
                                 const VorelKestrel::Tool::Bytes& challenge);

#endif
