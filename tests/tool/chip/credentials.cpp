#include "tests/tool/chip/credentials.h"

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/pem.h>

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

Bytes readTestFile(const std::string& name)
{
    std::ifstream file(std::string(TEST_DATA_FOLDER "/") + name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

KeyPointer readTestKey(const std::string& name)
{
    const Bytes pem = readTestFile(name);
    return KeyPointer(PEM_read_bio_PrivateKey(readerOf(pem).get(), nullptr, nullptr, nullptr));
}

namespace {

Bytes rThenS(const Bytes& der)
{
    constexpr std::size_t kHalf = 32;
    const auto* position = der.data();
    const OpensslPointer<ECDSA_SIG, ECDSA_SIG_free> pair(
        d2i_ECDSA_SIG(nullptr, &position, static_cast<long>(der.size())));
    Bytes raw(2 * kHalf);
    BN_bn2binpad(ECDSA_SIG_get0_r(pair.get()), raw.data(), kHalf);
    BN_bn2binpad(ECDSA_SIG_get0_s(pair.get()), raw.data() + kHalf, kHalf);
    return raw;
}

} // namespace

Bytes signAs(const Generation& generation, EVP_PKEY* key, const Bytes& challenge)
{
    const OpensslPointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(EVP_PKEY_CTX_new(key, nullptr));
    const OpensslPointer<EVP_MD, EVP_MD_free> digest(EVP_MD_fetch(nullptr, generation.digest, nullptr));
    EXPECT_EQ(1, EVP_PKEY_sign_init(context.get()));
    EXPECT_EQ(1, EVP_PKEY_CTX_set_signature_md(context.get(), digest.get()));
    std::size_t length = 0;
    EXPECT_EQ(1, EVP_PKEY_sign(context.get(), nullptr, &length, challenge.data(), challenge.size()));
    Bytes signature(length);
    EXPECT_EQ(1, EVP_PKEY_sign(context.get(), signature.data(), &length, challenge.data(), challenge.size()));
    signature.resize(length);
    return generation.keyGroup == nullptr ? signature : rThenS(signature);
}
