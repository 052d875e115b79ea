#include "tool/chip/certificate.h"

#include <algorithm>
#include <ctime>
#include <new>
#include <utility>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include "common/hex.h"
#include "common/opensslpointer.h"
#include "tool/report/utctime.h"

namespace VorelKestrel::Tool {
namespace {

using BignumPointer = OpensslPointer<BIGNUM, BN_free>;
using Pkcs7Pointer = OpensslPointer<PKCS7, PKCS7_free>;
using X509Pointer = OpensslPointer<X509, X509_free>;

std::string reasonOfOpenssl()
{
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    return reason != nullptr ? reason : "no reason given";
}

void requireNothingLeft(const std::uint8_t* position, const std::uint8_t* end)
{
    if (position != end)
        throw CertificateError(std::to_string(end - position) + " bytes follow the certificate");
}

bool hasSignedAnother(X509* candidate, const STACK_OF(X509) * certificates)
{
    for (int i = 0; i < sk_X509_num(certificates); ++i) {
        X509* other = sk_X509_value(certificates, i);
        if (other != candidate && X509_NAME_cmp(X509_get_subject_name(candidate), X509_get_issuer_name(other)) == 0)
            return true;
    }
    return false;
}

using SharedX509 = std::shared_ptr<X509>;

SharedX509 share(X509* certificate)
{
    X509_up_ref(certificate);
    return {certificate, X509_free};
}

X509* leafOf(const STACK_OF(X509) * certificates)
{
    for (int i = 0; i < sk_X509_num(certificates); ++i) {
        X509* candidate = sk_X509_value(certificates, i);
        if (!hasSignedAnother(candidate, certificates))
            return candidate;
    }
    return sk_X509_value(certificates, 0); // a ring: each signed another; null if there is none
}

/// The certificate inside a PKCS #7 container, and the others there; null if the bytes are no container.
SharedX509 parseContainer(const std::uint8_t* data, std::size_t length, std::vector<SharedX509>& companions)
{
    const std::uint8_t* position = data;
    const Pkcs7Pointer container(d2i_PKCS7(nullptr, &position, static_cast<long>(length)));
    if (!container)
        return nullptr;
    requireNothingLeft(position, data + length);
    if (!PKCS7_type_is_signed(container.get()) || container->d.sign == nullptr)
        throw CertificateError("the PKCS #7 container is not of the kind that holds certificates");
    const STACK_OF(X509)* certificates = container->d.sign->cert;
    X509* leaf = leafOf(certificates);
    if (leaf == nullptr)
        throw CertificateError("the PKCS #7 container holds no certificate");
    for (int i = 0; i < sk_X509_num(certificates); ++i) {
        X509* each = sk_X509_value(certificates, i);
        if (each != leaf)
            companions.push_back(share(each));
    }
    return share(leaf);
}

X509Pointer parseBare(const std::uint8_t* data, std::size_t length)
{
    const std::uint8_t* position = data;
    X509Pointer certificate(d2i_X509(nullptr, &position, static_cast<long>(length)));
    if (!certificate)
        throw CertificateError("neither a PKCS #7 container nor an X.509 certificate in DER: " + reasonOfOpenssl());
    requireNothingLeft(position, data + length);
    return certificate;
}

BioPointer makeMemoryBio()
{
    BioPointer bio(BIO_new(BIO_s_mem()));
    if (!bio)
        throw std::bad_alloc();
    return bio;
}

std::string contentOf(BIO* bio)
{
    const char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return length > 0 ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

std::string timeAsText(const ASN1_TIME* time)
{
    std::tm utc{};
    return ASN1_TIME_to_tm(time, &utc) == 1 ? dateAndTime(utc) + "Z" : "invalid";
}

} // namespace

std::string nameAsText(const X509_NAME* name)
{
    const auto bio = makeMemoryBio();
    X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_ONELINE & ~XN_FLAG_SPC_EQ);
    return contentOf(bio.get());
}

std::string describeKey(const EVP_PKEY* key)
{
    if (key == nullptr)
        return "unknown";
    const char* type = EVP_PKEY_get0_type_name(key);
    const std::string name = type != nullptr ? type : "unknown";
    char group[64];
    if (EVP_PKEY_get_group_name(key, group, sizeof(group), nullptr) == 1)
        return name + " " + group;
    return name + " " + std::to_string(EVP_PKEY_get_bits(key)) + " bits";
}

Certificate::Certificate(const std::uint8_t* data, std::size_t length)
{
    if (length == 0)
        throw CertificateError("no bytes at all");
    ERR_clear_error();
    m_certificate = parseContainer(data, length, m_companions);
    m_isInContainer = m_certificate != nullptr;
    if (!m_isInContainer)
        m_certificate = parseBare(data, length); // the deleter comes with it
    ERR_clear_error();
}

std::string Certificate::subject() const
{
    return nameAsText(X509_get_subject_name(m_certificate.get()));
}

std::string Certificate::issuer() const
{
    return nameAsText(X509_get_issuer_name(m_certificate.get()));
}

std::vector<std::string> Certificate::heldChain() const
{
    const X509* top = m_certificate.get();
    std::vector<std::string> subjects = {subject()};
    std::vector<SharedX509> left = m_companions;
    while (true) {
        const auto isIssuer = [top](const SharedX509& each) {
            return X509_NAME_cmp(X509_get_subject_name(each.get()), X509_get_issuer_name(top)) == 0;
        };
        const auto issuer = std::find_if(left.begin(), left.end(), isIssuer);
        if (issuer == left.end())
            return subjects;
        const SharedX509 found = *issuer;
        left.erase(issuer); // each is in the chain once: names can go round in a ring
        subjects.push_back(nameAsText(X509_get_subject_name(found.get())));
        top = found.get();
    }
}

std::string Certificate::serial() const
{
    const BignumPointer number(ASN1_INTEGER_to_BN(X509_get0_serialNumber(m_certificate.get()), nullptr));
    char* digits = number ? BN_bn2hex(number.get()) : nullptr;
    if (digits == nullptr)
        throw std::bad_alloc();
    std::string text = digits;
    OPENSSL_free(digits);
    for (char& digit : text) {
        if (digit >= 'A' && digit <= 'F')
            digit = static_cast<char>(digit - 'A' + 'a');
    }
    return text;
}

std::string Certificate::notBefore() const
{
    return timeAsText(X509_get0_notBefore(m_certificate.get()));
}

std::string Certificate::notAfter() const
{
    return timeAsText(X509_get0_notAfter(m_certificate.get()));
}

std::string Certificate::keyDescription() const
{
    return describeKey(publicKey());
}

std::string Certificate::sha256() const
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (X509_digest(m_certificate.get(), EVP_sha256(), digest, &length) != 1)
        throw std::bad_alloc();
    return toHex(Bytes(digest, digest + length));
}

std::string Certificate::pem() const
{
    const auto bio = makeMemoryBio();
    PEM_write_bio_X509(bio.get(), m_certificate.get());
    return contentOf(bio.get());
}

EVP_PKEY* Certificate::publicKey() const
{
    EVP_PKEY* key = X509_get0_pubkey(m_certificate.get());
    ERR_clear_error();
    return key;
}

} // namespace VorelKestrel::Tool
