#include "simulator/chip/credentials.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "common/opensslpointer.h"

namespace VorelKestrel::Simulator {
namespace {

using Bio = OpensslPointer<BIO, BIO_free>;
using Certificate = OpensslPointer<X509, X509_free>;
using Container = OpensslPointer<PKCS7, PKCS7_free>;
using Extension = OpensslPointer<X509_EXTENSION, X509_EXTENSION_free>;
using OctetString = OpensslPointer<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using Digest = OpensslPointer<EVP_MD, EVP_MD_free>;
using SignContext = OpensslPointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using EcdsaSignature = OpensslPointer<ECDSA_SIG, ECDSA_SIG_free>;

constexpr std::size_t kSerialMaximumLength = 16;

/// Ends the queue of OpenSSL's errors in an exception that says what was tried.
[[noreturn]] void fail(const std::string& what)
{
    const unsigned long code = ERR_peek_last_error();
    ERR_clear_error();
    const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
    throw CredentialsError(reason == nullptr ? what : what + " (" + reason + ")");
}

void check(bool succeeded, const char* what)
{
    if (!succeeded)
        fail(what);
}

EVP_PKEY* newKey(const Generation& generation)
{
    EVP_PKEY* key = generation.keyGroup == nullptr ? EVP_RSA_gen(generation.keyBits) : EVP_EC_gen(generation.keyGroup);
    check(key != nullptr, "making a key failed");
    return key;
}

bool hasGroup(const EVP_PKEY* key, const char* wanted)
{
    std::array<char, 64> group{};
    std::size_t length = 0;
    return EVP_PKEY_get_group_name(key, group.data(), group.size(), &length) == 1 &&
           std::strcmp(group.data(), wanted) == 0;
}

bool isKeyOf(const Generation& generation, const EVP_PKEY* key)
{
    return EVP_PKEY_is_a(key, generation.keyType) == 1 &&
           EVP_PKEY_get_bits(key) == static_cast<int>(generation.keyBits) &&
           (generation.keyGroup == nullptr || hasGroup(key, generation.keyGroup));
}

void setSerial(X509* certificate, std::size_t length)
{
    // The first byte keeps the number positive and its length fixed.
    const Bytes serial(length, 0x5a);
    OpensslPointer<BIGNUM, BN_free> number(BN_bin2bn(serial.data(), static_cast<int>(length), nullptr));
    check(number != nullptr && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
          "setting the serial number failed");
}

void setName(X509* certificate)
{
    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>("Simulated authentication coprocessor");
    check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0) == 1, "naming the certificate failed");
    check(X509_set_issuer_name(certificate, name) == 1, "naming the issuer failed");
}

void setValidity(X509* certificate)
{
    constexpr long kSecondsOfTenYears = 10L * 365 * 24 * 60 * 60;
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), kSecondsOfTenYears);
}

/// A comment that is there for its length alone.
void addFiller(X509* certificate, std::size_t length)
{
    if (length == 0)
        return;
    const Bytes text(length, 'x');
    const OctetString value(ASN1_OCTET_STRING_new());
    check(value != nullptr && ASN1_OCTET_STRING_set(value.get(), text.data(), static_cast<int>(length)) == 1,
          "filling the certificate failed");
    const Extension extension(X509_EXTENSION_create_by_NID(nullptr, NID_netscape_comment, 0, value.get()));
    check(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1,
          "filling the certificate failed");
}

Certificate selfSigned(EVP_PKEY* key, std::size_t serialLength, std::size_t fillerLength)
{
    Certificate certificate(X509_new());
    check(certificate != nullptr && X509_set_version(certificate.get(), X509_VERSION_3) == 1,
          "making a certificate failed");
    setSerial(certificate.get(), serialLength);
    setName(certificate.get());
    setValidity(certificate.get());
    check(X509_set_pubkey(certificate.get(), key) == 1, "putting the key into the certificate failed");
    addFiller(certificate.get(), fillerLength);
    check(X509_sign(certificate.get(), key, EVP_sha256()) > 0, "signing the certificate failed");
    return certificate;
}

Bytes encoded(PKCS7* container)
{
    const int length = i2d_PKCS7(container, nullptr);
    check(length > 0, "encoding the certificate container failed");
    Bytes bytes(static_cast<std::size_t>(length));
    unsigned char* end = bytes.data();
    i2d_PKCS7(container, &end);
    return bytes;
}

Bytes contained(X509* certificate)
{
    const Container container(PKCS7_new());
    check(container != nullptr && PKCS7_set_type(container.get(), NID_pkcs7_signed) == 1 &&
              PKCS7_content_new(container.get(), NID_pkcs7_data) == 1 && PKCS7_set_detached(container.get(), 1) == 1 &&
              PKCS7_add_certificate(container.get(), certificate) == 1,
          "making the certificate container failed");
    return encoded(container.get());
}

/// A container of exactly @p wanted bytes around a self-signed certificate.
/// The encoding has lengths of lengths, so a filler alone cannot reach every size: the serial number helps out. And an
/// ECDSA signature varies by a byte or two each time, so a size that was just missed is tried again.
Bytes containedInLength(EVP_PKEY* key, std::size_t wanted)
{
    constexpr int kAttempts = 16;
    for (std::size_t serialLength = kSerialMaximumLength; serialLength > 0; --serialLength) {
        std::size_t filler = 0;
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            Bytes container = contained(selfSigned(key, serialLength, filler).get());
            if (container.size() == wanted)
                return container;
            if (container.size() > wanted + filler)
                break;                           // too long with no filler at all
            filler += wanted - container.size(); // may also take away: the sum is what counts
        }
    }
    throw CredentialsError("no certificate container of " + std::to_string(wanted) +
                           " bytes can be made; without filler it has " +
                           std::to_string(contained(selfSigned(key, 1, 0).get()).size()));
}

Bytes newCertificate(EVP_PKEY* key, std::size_t length)
{
    return length == 0 ? contained(selfSigned(key, kSerialMaximumLength, 0).get()) : containedInLength(key, length);
}

Bytes contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    Bytes content;
    std::array<char, 4096> block{};
    do {
        file.read(block.data(), block.size());
        content.insert(content.end(), block.begin(), block.begin() + file.gcount());
    } while (file);
    if (!file.eof())
        throw CredentialsError("cannot read " + path + ": " + std::strerror(errno));
    return content;
}

Bio readerOf(const Bytes& content)
{
    return Bio(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
}

/// Nobody is asked for a password: a key that needs one is refused.
int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/)
{
    return -1;
}

EVP_PKEY* readKey(const std::string& path)
{
    const Bytes content = contentOf(path);
    EVP_PKEY* key = PEM_read_bio_PrivateKey(readerOf(content).get(), nullptr, noPassword, nullptr);
    if (key == nullptr)
        key = d2i_PrivateKey_bio(readerOf(content).get(), nullptr);
    if (key == nullptr)
        fail(path + " holds no private key, neither PEM nor DER, or a password protects it");
    ERR_clear_error();
    return key;
}

Container readContainer(const Bytes& content)
{
    Container container(PEM_read_bio_PKCS7(readerOf(content).get(), nullptr, noPassword, nullptr));
    if (container == nullptr)
        container.reset(d2i_PKCS7_bio(readerOf(content).get(), nullptr));
    ERR_clear_error();
    return container;
}

Certificate readBareCertificate(const Bytes& content)
{
    Certificate certificate(PEM_read_bio_X509(readerOf(content).get(), nullptr, noPassword, nullptr));
    if (certificate == nullptr)
        certificate.reset(d2i_X509_bio(readerOf(content).get(), nullptr));
    ERR_clear_error();
    return certificate;
}

/// Whether one of the certificates in the container is that of the key.
bool holdsCertificateOf(const PKCS7* container, const EVP_PKEY* key)
{
    if (PKCS7_type_is_signed(container) == 0 || container->d.sign == nullptr)
        return false;
    STACK_OF(X509)* certificates = container->d.sign->cert;
    for (int i = 0; i < sk_X509_num(certificates); ++i) {
        if (X509_check_private_key(sk_X509_value(certificates, i), key) == 1)
            return true;
    }
    return false;
}

Bytes readCertificate(const std::string& path, const EVP_PKEY* key)
{
    const Bytes content = contentOf(path);
    if (const Container container = readContainer(content)) {
        const bool matches = holdsCertificateOf(container.get(), key);
        ERR_clear_error();
        if (!matches)
            throw CredentialsError(path + " holds no certificate of the private key");
        return encoded(container.get());
    }
    const Certificate certificate = readBareCertificate(content);
    if (certificate == nullptr)
        throw CredentialsError(path + " holds neither a certificate nor a PKCS #7 container, neither PEM nor DER");
    if (X509_check_private_key(certificate.get(), key) != 1) {
        ERR_clear_error();
        throw CredentialsError("the certificate in " + path + " is not that of the private key");
    }
    return contained(certificate.get());
}

/// Frees what OpenSSL keeps for this thread. A front's thread may still be ending when the process does, and then
/// nobody else frees it.
class ThreadState
{
public:
    ThreadState() = default;
    ~ThreadState() { OPENSSL_thread_stop(); }
    ThreadState(const ThreadState&) = delete;
    ThreadState& operator=(const ThreadState&) = delete;
};

Bytes signDigest(EVP_PKEY* key, const char* digestName, const Bytes& digest)
{
    const SignContext context(EVP_PKEY_CTX_new(key, nullptr));
    const Digest digestKind(EVP_MD_fetch(nullptr, digestName, nullptr));
    check(context != nullptr && digestKind != nullptr && EVP_PKEY_sign_init(context.get()) == 1 &&
              EVP_PKEY_CTX_set_signature_md(context.get(), digestKind.get()) == 1,
          "preparing a signature failed");
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
    std::size_t length = signature.size();
    check(EVP_PKEY_sign(context.get(), signature.data(), &length, digest.data(), digest.size()) == 1, "signing failed");
    signature.resize(length);
    return signature;
}

/// From the DER form to r then s, both as long as the curve's numbers.
Bytes plainEcdsa(const Bytes& der, std::size_t length)
{
    const unsigned char* begin = der.data();
    const EcdsaSignature signature(d2i_ECDSA_SIG(nullptr, &begin, static_cast<long>(der.size())));
    check(signature != nullptr, "decoding the signature failed");
    const int half = static_cast<int>(length / 2);
    Bytes plain(length);
    check(BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), plain.data(), half) == half &&
              BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), plain.data() + half, half) == half,
          "decoding the signature failed");
    return plain;
}

} // namespace

Credentials::Credentials(const Generation& generation, Key key, Bytes certificate)
    : m_generation(&generation), m_key(std::move(key)), m_certificate(std::move(certificate))
{}

Credentials Credentials::generate(const Generation& generation, std::size_t certificateLength)
{
    Key key(newKey(generation));
    Bytes certificate = newCertificate(key.get(), certificateLength);
    return Credentials(generation, std::move(key), std::move(certificate));
}

Credentials Credentials::load(const Generation& generation, const std::string& keyFile,
                              const std::string& certificateFile, std::size_t certificateLength)
{
    Key key(readKey(keyFile));
    if (!isKeyOf(generation, key.get()))
        throw CredentialsError("the key in " + keyFile + " does not fit: a chip of protocol " + generation.protocol +
                               " signs with " + generation.keyName);
    Bytes certificate = certificateFile.empty() ? newCertificate(key.get(), certificateLength)
                                                : readCertificate(certificateFile, key.get());
    return Credentials(generation, std::move(key), std::move(certificate));
}

Bytes Credentials::sign(const Bytes& challenge) const
{
    const ThreadState threadState;
    Bytes signature = signDigest(m_key.get(), m_generation->digest, challenge);
    return m_generation->keyGroup == nullptr ? signature : plainEcdsa(signature, m_generation->responseLength);
}

} // namespace VorelKestrel::Simulator
