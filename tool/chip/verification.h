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

/// Says why @p key (null: one that cannot be used) cannot be the key of a chip of this generation. None if it can.
std::optional<SignatureFlaw> findWrongKey(const Generation& generation, EVP_PKEY* key);

/// Says why @p signature is no signature of @p challenge by the owner of @p key (which may be null: a key that cannot
/// be used). None if it is one.
std::optional<SignatureFlaw> findFlaw(const Generation& generation, EVP_PKEY* key, const Bytes& challenge,
                                      const Bytes& signature);

/// A signature, and what was to be signed.
struct SignedChallenge
{
    Bytes challenge;
    Bytes signature;
};

/// Whether a second signature, over another challenge, tells more about a flaw of the first.
bool mayBeToldApart(const SignatureFlaw& flaw);
/// The same, for what has arrived in place of a signature that does not match: the content of another register.
bool mayBeAnotherRegister(const Bytes& signature);
/// What the second one tells: that the first is a recorded one, that bits changed on its way, or that another register
/// was read in its place.
SignatureFlaw tellApart(const Generation& generation, EVP_PKEY* key, const SignatureFlaw& first,
                        const Bytes& firstSignature, const SignedChallenge& second);

} // namespace VorelKestrel::Tool

#endif
