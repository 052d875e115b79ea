#ifndef TOOL_CHIP_VERIFICATION_H
#define TOOL_CHIP_VERIFICATION_H

#include <optional>
#include <string>

#include <openssl/types.h>

#include "common/bytes.h"
#include "common/generations.h"

namespace VorelKestrel::Tool {

/// Why a signature is none.
struct SignatureFlaw
{
    const char* cause; // for programs: "wrong signature"
    std::string found; // for people
};

/// Says why @p signature is no signature of @p challenge by the owner of @p key (which may be null: a key that cannot
/// be used). None if it is one.
std::optional<SignatureFlaw> findFlaw(const Generation& generation, EVP_PKEY* key, const Bytes& challenge,
                                      const Bytes& signature);

} // namespace VorelKestrel::Tool

#endif
