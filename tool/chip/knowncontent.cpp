#include "tool/chip/knowncontent.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string>
#include <string_view>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
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

bool isNothing(const Bytes& /*bytes*/)
{
    return false;
}

bool isCertificateInBase64(const Bytes& bytes)
{
    Bytes text;
    std::copy_if(bytes.begin(), bytes.end(), std::back_inserter(text),
                 [](std::uint8_t byte) { return std::isspace(byte) == 0; });
    constexpr std::size_t kLongest = std::size_t{1} << 20U;
    if (text.empty() || text.size() > kLongest)
        return false;
    Bytes decoded(text.size());
    const int length = EVP_DecodeBlock(decoded.data(), text.data(), static_cast<int>(text.size()));
    decoded.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return length > 0 && isInDer<X509, d2i_X509_bio, X509_free>(decoded);
}

using namespace std::string_view_literals;
constexpr std::string_view kDashesInUtf16 = "-\0-\0-"sv; // in both orders of bytes

struct Kind
{
    KnownContent content;
    std::string_view label; // the end of the line with which it begins in PEM; empty: none
    bool (*isHeldInDer)(const Bytes& bytes);
};

constexpr Kind kKinds[] = {
    {{"a certificate", true,
      "Each certificate begins with the line '-----BEGIN CERTIFICATE-----' and ends with '-----END CERTIFICATE-----'.",
      true},
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
    {{"a PKCS #12 container", false,
      "Take the issuer's certificate out of it: 'openssl pkcs12 -cacerts -nokeys -in FILE' (or -clcerts)."},
     "",
     isInDer<PKCS12, d2i_PKCS12_bio, PKCS12_free>},
    {{"PEM in UTF-16", false, "Convert it: 'iconv -f UTF-16 -t UTF-8 FILE'."}, kDashesInUtf16, isNothing},
    {{"a certificate in base64 without the lines around it", false,
      "Put the line '-----BEGIN CERTIFICATE-----' before it and '-----END CERTIFICATE-----' behind it."},
     "",
     isCertificateInBase64},
    {{"a web page", false, "The download has failed: fetch the issuers' certificates again."}, "<html", isNothing},
};

} // namespace

const KnownContent* recognise(const Bytes& bytes)
{
    const std::string text(bytes.begin(), bytes.end());
    const auto* end = std::end(kKinds);
    const auto* kind = std::find_if(std::begin(kKinds), end, [&](const Kind& each) {
        return (!each.label.empty() && text.find(each.label) != std::string::npos) || each.isHeldInDer(bytes);
    });
    return kind == end ? nullptr : &kind->content;
}

} // namespace VorelKestrel::Tool
