#include "tool/chip/verification.h"

#include <algorithm>
#include <new>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>

#include "common/numbers.h"
#include "common/opensslpointer.h"
#include "tool/chip/storedcertificate.h"

namespace VorelKestrel::Tool {

namespace {

using KeyContextPointer = OpensslPointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using DigestPointer = OpensslPointer<EVP_MD, EVP_MD_free>;
using GroupPointer = OpensslPointer<EC_GROUP, EC_GROUP_free>;
using NumberPointer = OpensslPointer<BIGNUM, BN_free>;
using EcdsaPointer = OpensslPointer<ECDSA_SIG, ECDSA_SIG_free>;

constexpr char kWrongSignature[] = "wrong signature";
constexpr char kAnotherChallenge[] = "another challenge";

bool hasGroup(EVP_PKEY* key, const char* group)
{
    char name[64];
    return EVP_PKEY_get_group_name(key, name, sizeof(name), nullptr) == 1 && std::string(name) == group;
}

bool isKeyOf(const Generation& generation, EVP_PKEY* key)
{
    return key != nullptr && EVP_PKEY_is_a(key, generation.keyType) == 1 &&
           EVP_PKEY_get_bits(key) == static_cast<int>(generation.keyBits) &&
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
    const KeyContextPointer context(EVP_PKEY_CTX_new(key, nullptr));
    const DigestPointer digest(EVP_MD_fetch(nullptr, generation.digest, nullptr));
    if (!context || !digest)
        throw std::bad_alloc();
    if (EVP_PKEY_verify_init(context.get()) != 1 || EVP_PKEY_CTX_set_signature_md(context.get(), digest.get()) != 1)
        return false;
    const Bytes encoded = generation.keyGroup == nullptr ? signature : inDer(signature);
    return EVP_PKEY_verify(context.get(), encoded.data(), encoded.size(), challenge.data(), challenge.size()) == 1;
}

bool isEcdsaInDer(const Bytes& signature)
{
    const unsigned char* position = signature.data();
    const EcdsaPointer pair(d2i_ECDSA_SIG(nullptr, &position, static_cast<long>(signature.size())));
    return pair && position == signature.data() + signature.size();
}

Bytes exchanged(Bytes signature)
{
    std::rotate(signature.begin(), signature.begin() + static_cast<std::ptrdiff_t>(signature.size() / 2),
                signature.end());
    return signature;
}

/// The order of the curve or the modulus of the RSA key; null if the key does not tell.
NumberPointer limitOf(const Generation& generation, const EVP_PKEY* key)
{
    if (generation.keyGroup != nullptr) {
        const GroupPointer group(EC_GROUP_new_by_curve_name(OBJ_txt2nid(generation.keyGroup)));
        return NumberPointer(group ? BN_dup(EC_GROUP_get0_order(group.get())) : nullptr);
    }
    BIGNUM* modulus = nullptr;
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &modulus);
    return NumberPointer(modulus);
}

/// Whether no key of the kind ever makes this number. An RSA signature above the modulus may be that of another key,
/// whose modulus is larger, but for the number of all ones.
bool isNoNumber(const Generation& generation, const BIGNUM* number, const BIGNUM* limit)
{
    if (BN_is_zero(number))
        return true;
    if (generation.keyGroup != nullptr)
        return BN_cmp(number, limit) >= 0;
    const auto bits = static_cast<int>(generation.responseLength * 8);
    const NumberPointer next(BN_dup(number));
    if (!next || BN_add_word(next.get(), 1) != 1)
        throw std::bad_alloc();
    return BN_cmp(number, limit) == 0 || BN_num_bits(next.get()) > bits;
}

bool isOutOfRange(const Generation& generation, const EVP_PKEY* key, const Bytes& signature)
{
    const NumberPointer limit = limitOf(generation, key);
    const std::size_t length = generation.keyGroup == nullptr ? signature.size() : signature.size() / 2;
    for (std::size_t at = 0; at + length <= signature.size(); at += length) {
        const NumberPointer number(BN_bin2bn(signature.data() + at, static_cast<int>(length), nullptr));
        if (!number || !limit)
            throw std::bad_alloc();
        if (isNoNumber(generation, number.get(), limit.get()))
            return true;
    }
    return false;
}

/// Whether the RSA key has signed something: what it was shows only to its public key.
bool isOverAnyChallenge(const Generation& generation, EVP_PKEY* key, const Bytes& signature)
{
    const KeyContextPointer context(EVP_PKEY_CTX_new(key, nullptr));
    const DigestPointer digest(EVP_MD_fetch(nullptr, generation.digest, nullptr));
    if (!context || !digest)
        throw std::bad_alloc();
    Bytes recovered(signature.size());
    std::size_t length = recovered.size();
    return EVP_PKEY_verify_recover_init(context.get()) == 1 &&
           EVP_PKEY_CTX_set_signature_md(context.get(), digest.get()) == 1 &&
           EVP_PKEY_verify_recover(context.get(), recovered.data(), &length, signature.data(), signature.size()) == 1;
}

/// Whether the chip has signed the digest of the challenge: whoever sent it has hashed it first.
bool isOverDigest(const Generation& generation, EVP_PKEY* key, const Bytes& challenge, const Bytes& signature)
{
    Bytes digest(EVP_MAX_MD_SIZE);
    std::size_t length = 0;
    if (EVP_Q_digest(nullptr, generation.digest, nullptr, challenge.data(), challenge.size(), digest.data(), &length) !=
        1)
        return false;
    digest.resize(length);
    const bool isOver = signature.size() == generation.responseLength && matches(generation, key, digest, signature);
    ERR_clear_error();
    return isOver;
}

SignatureFlaw overDigest(const Generation& generation, const Bytes& challenge)
{
    return {kAnotherChallenge, "the signature is over the " + std::string(generation.digest) + " digest of these " +
                                   inBytes(challenge.size()) +
                                   ": the digest was the challenge that the chip got, and not these bytes"};
}

/// Of a signature that does not match.
SignatureFlaw explainMismatch(const Generation& generation, EVP_PKEY* key, const Bytes& challenge,
                              const Bytes& signature)
{
    if (isOutOfRange(generation, key, signature))
        return {"signature out of range", "the signature is no signature of any key: a number in it is out of range"};
    if (generation.keyGroup != nullptr && matches(generation, key, challenge, exchanged(signature)))
        return {"r and s exchanged", "the signature has s before r"};
    if (isOverDigest(generation, key, challenge, signature))
        return overDigest(generation, challenge);
    if (generation.keyGroup != nullptr) // ECDSA does not tell the two apart
        return {kWrongSignature, "the signature is of another key than the certificate's, or over another challenge"};
    if (isOverAnyChallenge(generation, key, signature))
        return {kAnotherChallenge, "the signature is of the certificate's key, but over another challenge"};
    return {kWrongSignature, "the signature is not of the certificate's key"};
}

} // namespace

std::optional<SignatureFlaw> findWrongKey(const Generation& generation, EVP_PKEY* key)
{
    if (isKeyOf(generation, key))
        return std::nullopt;
    return SignatureFlaw{"wrong kind of key", "the certificate's key is not of the kind that protocol " +
                                                  std::string(generation.protocol) + " signs with (" +
                                                  generation.scheme + ")"};
}

std::optional<SignatureFlaw> findFlaw(const Generation& generation, EVP_PKEY* key, const Bytes& challenge,
                                      const Bytes& signature)
{
    if (auto wrongKey = findWrongKey(generation, key))
        return wrongKey;
    if (challenge.size() != generation.challengeLength && isOverDigest(generation, key, challenge, signature))
        return overDigest(generation, challenge);
    if (challenge.size() != generation.challengeLength)
        return SignatureFlaw{kWrongSignature, "the challenge has " + std::to_string(challenge.size()) +
                                                  " bytes instead of " + std::to_string(generation.challengeLength)};
    if (signature.size() != generation.responseLength) {
        const bool isDer = generation.keyGroup != nullptr && isEcdsaInDer(signature);
        ERR_clear_error();
        return SignatureFlaw{isDer ? "signature in DER" : kWrongSignature,
                             "the signature has " + std::to_string(signature.size()) + " bytes instead of " +
                                 std::to_string(generation.responseLength) + (isDer ? ": it is in DER" : "")};
    }
    std::optional<SignatureFlaw> flaw;
    if (!matches(generation, key, challenge, signature))
        flaw = explainMismatch(generation, key, challenge, signature);
    ERR_clear_error();
    return flaw;
}

bool mayBeToldApart(const SignatureFlaw& flaw)
{
    const std::string cause = flaw.cause;
    return cause == kWrongSignature || cause == kAnotherChallenge;
}

bool mayBeAnotherRegister(const Bytes& signature)
{
    constexpr std::ptrdiff_t kLongestByChance = 7; // behind the registers a chip delivers a filler
    const auto end = signature.end();
    for (auto begin = signature.begin(); begin != end;) {
        const auto next = std::find_if(begin, end, [&](std::uint8_t byte) { return byte != *begin; });
        const bool isAll =
            begin == signature.begin() && next == end; // an idle bus, or a chip that answers nothing else
        if (next - begin > kLongestByChance && !isAll)
            return true;
        begin = next;
    }
    return false;
}

SignatureFlaw tellApart(const Generation& generation, EVP_PKEY* key, const SignatureFlaw& first,
                        const Bytes& firstSignature, const SignedChallenge& second)
{
    if (mayBeToldApart(first) && second.signature == firstSignature)
        return {"recorded signature", "the chip answers two challenges with the same signature: it is a recorded one"};
    if (!findFlaw(generation, key, second.challenge, second.signature)) {
        if (mayBeAnotherRegister(firstSignature))
            return {kBusShared, "the first signature is none, as if another register had been read, and one over "
                                "another challenge matches"};
        return {kBitErrors, "the first signature does not match, and one over another challenge does"};
    }
    return first;
}

} // namespace VorelKestrel::Tool
