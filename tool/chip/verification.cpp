#include "tool/chip/verification.h"

#include <new>

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "common/opensslpointer.h"

namespace VorelKestrel::Tool {

namespace {

using ContextPointer = OpensslPointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using DigestPointer = OpensslPointer<EVP_MD, EVP_MD_free>;
using EcdsaPointer = OpensslPointer<ECDSA_SIG, ECDSA_SIG_free>;

bool hasGroup(EVP_PKEY* key, const char* group)
{
    char name[64];
    return EVP_PKEY_get_group_name(key, name, sizeof(name), nullptr) == 1 && std::string(name) == group;
}

bool isKeyOf(const Generation& generation, EVP_PKEY* key)
{
    return key != nullptr && EVP_PKEY_is_a(key, generation.keyType) == 1 &&
           (generation.keyGroup == nullptr || hasGroup(key, generation.keyGroup));
}

/// OpenSSL takes r and s in DER only.
Bytes inDer(const Bytes& rThenS)
{
    const EcdsaPointer pair(ECDSA_SIG_new());
    const auto half = static_cast<int>(rThenS.size() / 2);
    BIGNUM* r = BN_bin2bn(rThenS.data(), half, nullptr);
    BIGNUM* s = BN_bin2bn(rThenS.data() + half, half, nullptr);
    if (!pair || ECDSA_SIG_set0(pair.get(), r, s) != 1) { // takes both, or neither
        BN_free(r);
        BN_free(s);
        throw std::bad_alloc();
    }
    Bytes der(static_cast<std::size_t>(i2d_ECDSA_SIG(pair.get(), nullptr)));
    auto* position = der.data();
    i2d_ECDSA_SIG(pair.get(), &position);
    return der;
}

bool matches(const Generation& generation, EVP_PKEY* key, const Bytes& challenge, const Bytes& signature)
{
    const ContextPointer context(EVP_PKEY_CTX_new(key, nullptr));
    const DigestPointer digest(EVP_MD_fetch(nullptr, generation.digest, nullptr));
    if (!context || !digest)
        throw std::bad_alloc();
    if (EVP_PKEY_verify_init(context.get()) != 1 || EVP_PKEY_CTX_set_signature_md(context.get(), digest.get()) != 1)
        return false;
    const Bytes encoded = generation.keyGroup == nullptr ? signature : inDer(signature);
    return EVP_PKEY_verify(context.get(), encoded.data(), encoded.size(), challenge.data(), challenge.size()) == 1;
}

} // namespace

std::string findFlaw(const Generation& generation, EVP_PKEY* key, const Bytes& challenge, const Bytes& signature)
{
    if (!isKeyOf(generation, key))
        return "the certificate's key is not of the kind that protocol " + std::string(generation.protocol) +
               " signs with (" + generation.scheme + ")";
    if (challenge.size() != generation.challengeLength)
        return "the challenge has " + std::to_string(challenge.size()) + " bytes instead of " +
               std::to_string(generation.challengeLength);
    if (signature.size() != generation.responseLength)
        return "the signature has " + std::to_string(signature.size()) + " bytes instead of " +
               std::to_string(generation.responseLength);
    const bool isGood = matches(generation, key, challenge, signature);
    ERR_clear_error();
    return isGood ? "" : "the signature does not match the challenge and the certificate's key";
}

} // namespace VorelKestrel::Tool
