#ifndef SIMULATOR_CHIP_FILECONTENT_H
#define SIMULATOR_CHIP_FILECONTENT_H

#include <string>

#include <openssl/bio.h>

#include "common/bytes.h"
#include "common/opensslpointer.h"

namespace VorelKestrel::Simulator {

/// Reads the whole file, of at most 1 MiB. Throws CredentialsError.
Bytes contentOf(const std::string& path);

/// An OpenSSL reader of bytes, which must outlive it.
using Reader = OpensslPointer<BIO, BIO_free>;
Reader readerOf(const Bytes& content);

/// A password callback for OpenSSL that gives none: files with a password are refused.
int noPassword(char* buffer, int size, int writing, void* user);

} // namespace VorelKestrel::Simulator

#endif
