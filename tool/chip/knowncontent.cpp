#include "tool/chip/knowncontent.h"

#include <algorithm>
#include <iterator>
#include <string>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include "common/opensslpointer.h"

namespace VorelKestrel::Tool {
namespace {

/// Whether this is an object of the kind in DER.
template<typename T, auto readDer, auto release>
bool isInDer(const Bytes& bytes)
{
    const OpensslPointer<T, release> object(readDer(readerOf(bytes).get(), nullptr));
    ERR_clear_error(); // what it is not is an error to OpenSSL
    return object != nullptr;
}

struct Kind
{
    KnownContent content;
    const char* label; // the end of the line with which it begins in PEM
    bool (*isHeldInDer)(const Bytes& bytes);
};

constexpr Kind kKinds[] = {
    {{"a certificate", true, "Name the issuer's certificate."},
     " CERTIFICATE-----",
     isInDer<X509, d2i_X509_bio, X509_free>},
    {{"a certificate request", false, "Name the certificate that was issued for this request."},
     "CERTIFICATE REQUEST-----",
     isInDer<X509_REQ, d2i_X509_REQ_bio, X509_REQ_free>},
    {{"a private key", false,
      "Name the issuer's certificate. Its private key belongs to whoever issues, and on no board."},
     "PRIVATE KEY-----",
     isInDer<EVP_PKEY, d2i_PrivateKey_bio, EVP_PKEY_free>},
    {{"a public key", false, "Name the issuer's certificate, which has the key and the issuer's name."},
     "PUBLIC KEY-----",
     isInDer<EVP_PKEY, d2i_PUBKEY_bio, EVP_PKEY_free>},
    {{"a revocation list", false, "Name the issuer's certificate; the list goes with --crl."},
     "X509 CRL-----",
     isInDer<X509_CRL, d2i_X509_CRL_bio, X509_CRL_free>},
    {{"a PKCS #7 container", true,
      "Take the issuer's certificate out of it: 'openssl pkcs7 -print_certs', for DER with '-inform DER'."},
     "PKCS7-----",
     isInDer<PKCS7, d2i_PKCS7_bio, PKCS7_free>},
};

} // namespace

const KnownContent* recognise(const Bytes& bytes)
{
    const std::string text(bytes.begin(), bytes.end());
    const auto* end = std::end(kKinds);
    const auto* kind = std::find_if(std::begin(kKinds), end, [&](const Kind& each) {
        return text.find(each.label) != std::string::npos || each.isHeldInDer(bytes);
    });
    return kind == end ? nullptr : &kind->content;
}

} // namespace VorelKestrel::Tool
