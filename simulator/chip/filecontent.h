#ifndef SIMULATOR_CHIP_FILECONTENT_H
#define SIMULATOR_CHIP_FILECONTENT_H

#include <string>

#include "common/bytes.h"

namespace VorelKestrel::Simulator {

/// Reads the whole file, of at most 1 MiB. Throws CredentialsError.
Bytes contentOf(const std::string& path);

/// A password callback for OpenSSL that gives none: files with a password are refused.
int noPassword(char* buffer, int size, int writing, void* user);

} // namespace VorelKestrel::Simulator

#endif
