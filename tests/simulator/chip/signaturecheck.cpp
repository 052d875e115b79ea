#include "tests/simulator/chip/signaturecheck.h"

#include <cstddef>

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include "common/opensslpointer.h"

using VorelKestrel::Bytes;
using VorelKestrel::OpensslPointer;

namespace {

using Container = OpensslPointer<PKCS7, PKCS7_free>;
using VerifyContext = OpensslPointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using EcdsaSignature = OpensslPointer<ECDSA_SIG, ECDSA_SIG_free>;

Container containerOf(const Bytes& der)
{
    const unsigned char* begin = der.data();
    return Container(d2i_PKCS7(nullptr, &begin, static_cast<long>(der.size())));
}

const STACK_OF(X509) * certificatesOf(const PKCS7* container)
{
    return container != nullptr && PKCS7_type_is_signed(container) == 1 ? container->d.sign->cert : nullptr;
}

/// From r then s to the DER form.
Bytes derEcdsa(const Bytes& plain)
{
    const int half = static_cast<int>(plain.size() / 2);
    const EcdsaSignature signature(ECDSA_SIG_new());
    ECDSA_SIG_set0(signature.get(), BN_bin2bn(plain.data(), half, nullptr),
                   BN_bin2bn(plain.data() + half, half, nullptr));
    Bytes der(static_cast<std::size_t>(i2d_ECDSA_SIG(signature.get(), nullptr)));
    unsigned char* end = der.data();
    i2d_ECDSA_SIG(signature.get(), &end);
    return der;
}

} // namespace

int certificateCount(const Bytes& container)
{
    const Container parsed = containerOf(container);
    const auto* certificates = certificatesOf(parsed.get());
    return certificates == nullptr ? -1 : sk_X509_num(certificates);
}

bool isAuthentic(const Bytes& container, const Bytes& challenge, const Bytes& response)
{
    const Container parsed = containerOf(container);
    const auto* certificates = certificatesOf(parsed.get());
    if (certificates == nullptr || sk_X509_num(certificates) < 1)
        return false;
    EVP_PKEY* key = X509_get0_pubkey(sk_X509_value(certificates, 0));
    const bool isRsa = EVP_PKEY_is_a(key, "RSA") == 1;
    const Bytes signature = isRsa ? response : derEcdsa(response);
    const VerifyContext context(EVP_PKEY_CTX_new(key, nullptr));
    return EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_CTX_set_signature_md(context.get(), isRsa ? EVP_sha1() : EVP_sha256()) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), challenge.data(), challenge.size()) == 1;
}
