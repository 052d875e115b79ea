#ifndef SIMULATOR_CHIP_FILECONTENT_H
#define SIMULATOR_CHIP_FILECONTENT_H

#include <string>

#include <openssl/bio.h>

#include "common/bytes.h"
#include "common/opensslpointer.h"

namespace VorelKestrel::Simulator {

/// The whole file. Throws CredentialsError.
Bytes contentOf(const std::string& path);

/// Reads from the bytes, which outlive it.
using Reader = OpensslPointer<BIO, BIO_free>;
Reader readerOf(const Bytes& content);

/// For OpenSSL's readers of PEM. It never asks for a password: a file that needs one is refused.
int noPassword(char* buffer, int size, int writing, void* user);

} // namespace VorelKestrel::Simulator

#endif
