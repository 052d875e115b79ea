#include "simulator/chip/keys.h"

#include <array>
#include <cstring>

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include "common/opensslpointer.h"
#include "simulator/chip/credentialserror.h"
#include "simulator/chip/filecontent.h"

namespace VorelKestrel::Simulator {
namespace {

using Digest = OpensslPointer<EVP_MD, EVP_MD_free>;
using EcdsaSignature = OpensslPointer<ECDSA_SIG, ECDSA_SIG_free>;
using SignContext = OpensslPointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;

Key owned(EVP_PKEY* key)
{
    require(key != nullptr, "making a key failed");
    return {key, EVP_PKEY_free};
}

bool hasGroup(const EVP_PKEY* key, const char* wanted)
{
    std::array<char, 64> group{};
    std::size_t length = 0;
    return EVP_PKEY_get_group_name(key, group.data(), group.size(), &length) == 1 &&
           std::strcmp(group.data(), wanted) == 0;
}

/// Frees OpenSSL's data of this thread. Otherwise it leaks if the thread of a front is still running when the process
/// exits.
class ThreadState
{
public:
    ThreadState() = default;
    ~ThreadState() { OPENSSL_thread_stop(); }
    ThreadState(const ThreadState&) = delete;
    ThreadState& operator=(const ThreadState&) = delete;
};

Bytes plainEcdsa(const Bytes& der, int half)
{
    const unsigned char* begin = der.data();
    const EcdsaSignature signature(d2i_ECDSA_SIG(nullptr, &begin, static_cast<long>(der.size())));
    require(signature != nullptr, "decoding the signature failed");
    Bytes plain(2 * static_cast<std::size_t>(half));
    require(BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), plain.data(), half) == half &&
                BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), plain.data() + half, half) == half,
            "decoding the signature failed");
    return plain;
}

} // namespace

Key newKey(const Generation& generation)
{
    return generation.keyGroup == nullptr ? newRsaKey(generation.keyBits) : newEcKey(generation.keyGroup);
}

Key newEcKey(const char* curve)
{
    return owned(EVP_EC_gen(curve));
}

Key newRsaKey(unsigned bits)
{
    return owned(EVP_RSA_gen(bits));
}

Key readKey(const std::string& path)
{
    const Bytes content = contentOf(path);
    EVP_PKEY* key = PEM_read_bio_PrivateKey(readerOf(content).get(), nullptr, noPassword, nullptr);
    if (key == nullptr)
        key = d2i_PrivateKey_bio(readerOf(content).get(), nullptr);
    if (key == nullptr)
        failOfOpenssl(path + " contains no private key in PEM or DER, or a password protects it");
    ERR_clear_error();
    return owned(key);
}

bool isKeyOf(const Generation& generation, const Key& key)
{
    return EVP_PKEY_is_a(key.get(), generation.keyType) == 1 &&
           EVP_PKEY_get_bits(key.get()) == static_cast<int>(generation.keyBits) &&
           (generation.keyGroup == nullptr || hasGroup(key.get(), generation.keyGroup));
}

bool isRsa(const Key& key)
{
    return EVP_PKEY_is_a(key.get(), kGeneration20B.keyType) == 1;
}

Bytes signDigest(const Key& key, const char* digestName, const Bytes& digest)
{
    const ThreadState threadState;
    const SignContext context(EVP_PKEY_CTX_new(key.get(), nullptr));
    const Digest digestKind(EVP_MD_fetch(nullptr, digestName, nullptr));
    require(context != nullptr && digestKind != nullptr && EVP_PKEY_sign_init(context.get()) == 1 &&
                EVP_PKEY_CTX_set_signature_md(context.get(), digestKind.get()) == 1,
            "preparing a signature failed");
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(key.get())));
    std::size_t length = signature.size();
    require(EVP_PKEY_sign(context.get(), signature.data(), &length, digest.data(), digest.size()) == 1,
            "signing failed");
    signature.resize(length);
    return signature;
}

Bytes signAsChip(const Key& key, const char* digestName, const Bytes& digest)
{
    const Bytes signature = signDigest(key, digestName, digest);
    const int bytesOfANumber = (EVP_PKEY_get_bits(key.get()) + 7) / 8;
    return isRsa(key) ? signature : plainEcdsa(signature, bytesOfANumber);
}

} // namespace VorelKestrel::Simulator
