#include "simulator/chip/certificates.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "common/opensslpointer.h"
#include "simulator/chip/credentialserror.h"
#include "simulator/chip/filecontent.h"

namespace VorelKestrel::Simulator {
namespace {

using Container = OpensslPointer<PKCS7, PKCS7_free>;
using Extension = OpensslPointer<X509_EXTENSION, X509_EXTENSION_free>;
using Number = OpensslPointer<BIGNUM, BN_free>;
using OctetString = OpensslPointer<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;

void setSerial(X509* certificate, const CertificateText& text)
{
    const Bytes serial(text.serialLength, text.serialByte);
    const Number number(BN_bin2bn(serial.data(), static_cast<int>(serial.size()), nullptr));
    require(number != nullptr && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
            "setting the serial number failed");
}

void setName(X509* certificate, const std::string& name)
{
    const auto* text = reinterpret_cast<const unsigned char*>(name.data());
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC, text,
                                       static_cast<int>(name.size()), -1, 0) == 1,
            "naming the certificate failed");
}

void addExtension(X509* certificate, const Extension& extension)
{
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, "adding an extension failed");
}

void addFiller(X509* certificate, std::size_t length)
{
    const Bytes text(length, 'x');
    const OctetString value(ASN1_OCTET_STRING_new());
    require(value != nullptr && ASN1_OCTET_STRING_set(value.get(), text.data(), static_cast<int>(length)) == 1,
            "filling the certificate failed");
    addExtension(certificate, Extension(X509_EXTENSION_create_by_NID(nullptr, NID_netscape_comment, 0, value.get())));
}

/// A certificate without the issuer's name and signature.
Certificate prepare(const Key& key, const CertificateText& text)
{
    Certificate certificate(X509_new(), X509_free);
    require(certificate != nullptr && X509_set_version(certificate.get(), X509_VERSION_3) == 1,
            "making a certificate failed");
    setSerial(certificate.get(), text);
    setName(certificate.get(), text.name);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), text.notBefore);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), text.notAfter);
    require(X509_set_pubkey(certificate.get(), key.get()) == 1, "putting the key into the certificate failed");
    if (text.basicConstraints != nullptr)
        addExtension(certificate.get(),
                     Extension(X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints, text.basicConstraints)));
    if (text.fillerLength > 0)
        addFiller(certificate.get(), text.fillerLength);
    return certificate;
}

/// Signs with the most frequent length, because ECDSA signatures vary by a byte or two: certificates of the same
/// content then have the same length.
void sign(X509* certificate, const Key& key)
{
    constexpr int kAttempts = 200; // every second signature has that length
    const int usualLength = EVP_PKEY_get_size(key.get()) - (isRsa(key) ? 0 : 1);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        require(X509_sign(certificate, key.get(), EVP_sha256()) > 0, "signing the certificate failed");
        const ASN1_BIT_STRING* signature = nullptr;
        X509_get0_signature(&signature, nullptr, certificate);
        if (ASN1_STRING_length(signature) == usualLength)
            return;
    }
}

Certificate finish(const Certificate& certificate, X509_NAME* issuer, const Key& key)
{
    require(X509_set_issuer_name(certificate.get(), issuer) == 1, "naming the issuer failed");
    sign(certificate.get(), key);
    return certificate;
}

Bytes encoded(PKCS7* container)
{
    const int length = i2d_PKCS7(container, nullptr);
    require(length > 0, "encoding the certificate container failed");
    Bytes bytes(static_cast<std::size_t>(length));
    unsigned char* end = bytes.data();
    i2d_PKCS7(container, &end);
    return bytes;
}

Bytes makeContained(const Key& key, const Issuer* issuer, const CertificateText& text)
{
    return contained({issuer == nullptr ? makeSelfSigned(key, text) : makeIssued(key, text, *issuer)});
}

Container readContainer(const Bytes& content)
{
    Container container(PEM_read_bio_PKCS7(readerOf(content).get(), nullptr, noPassword, nullptr));
    if (container == nullptr)
        container.reset(d2i_PKCS7_bio(readerOf(content).get(), nullptr));
    ERR_clear_error();
    return container;
}

/// Null if there is none.
Certificate readBareCertificate(const Bytes& content)
{
    X509* certificate = PEM_read_bio_X509(readerOf(content).get(), nullptr, noPassword, nullptr);
    if (certificate == nullptr)
        certificate = d2i_X509_bio(readerOf(content).get(), nullptr);
    ERR_clear_error();
    return {certificate, X509_free};
}

bool isCertificateOf(const X509* certificate, const Key& key)
{
    const bool isIts = X509_check_private_key(certificate, key.get()) == 1;
    ERR_clear_error();
    return isIts;
}

/// Whether one of the certificates in the container belongs to the key.
bool holdsCertificateOf(const PKCS7* container, const Key& key)
{
    if (PKCS7_type_is_signed(container) == 0 || container->d.sign == nullptr)
        return false;
    STACK_OF(X509)* certificates = container->d.sign->cert;
    for (int i = 0; i < sk_X509_num(certificates); ++i) {
        if (isCertificateOf(sk_X509_value(certificates, i), key))
            return true;
    }
    return false;
}

} // namespace

Certificate makeSelfSigned(const Key& key, const CertificateText& text)
{
    const Certificate certificate = prepare(key, text);
    return finish(certificate, X509_get_subject_name(certificate.get()), key);
}

Certificate makeIssued(const Key& key, const CertificateText& text, const Issuer& issuer)
{
    return finish(prepare(key, text), X509_get_subject_name(issuer.certificate.get()), issuer.key);
}

Issuer readIssuer(const std::string& certificateFile, const std::string& keyFile)
{
    Issuer issuer{readKey(keyFile), readBareCertificate(contentOf(certificateFile))};
    if (issuer.certificate == nullptr)
        throw CredentialsError(certificateFile + " contains no certificate in PEM or DER");
    if (!isCertificateOf(issuer.certificate.get(), issuer.key))
        throw CredentialsError("the issuer's certificate in " + certificateFile + " does not belong to the key in " +
                               keyFile);
    return issuer;
}

Bytes contained(const std::vector<Certificate>& certificates)
{
    const Container container(PKCS7_new());
    require(container != nullptr && PKCS7_set_type(container.get(), NID_pkcs7_signed) == 1 &&
                PKCS7_content_new(container.get(), NID_pkcs7_data) == 1 && PKCS7_set_detached(container.get(), 1) == 1,
            "making the certificate container failed");
    for (const Certificate& certificate : certificates)
        require(PKCS7_add_certificate(container.get(), certificate.get()) == 1,
                "filling the certificate container failed");
    return encoded(container.get());
}

// DER lengths vary in length themselves, so the filler alone cannot reach every size. A shorter serial number then
// makes up the difference.
Bytes makeContained(const Key& key, const Issuer* issuer, std::size_t length)
{
    CertificateText text;
    const std::size_t shortest = makeContained(key, issuer, text).size();
    if (length == 0 || length == shortest)
        return makeContained(key, issuer, text);
    for (; length > shortest && text.serialLength > 0; --text.serialLength) {
        Bytes container = makeContained(key, issuer, text);
        if (container.size() == length)
            return container;
        text.fillerLength += length - container.size(); // unsigned arithmetic wraps, so this also shortens the filler
        container = makeContained(key, issuer, text);
        if (container.size() == length)
            return container;
        text.fillerLength += length - container.size();
    }
    throw CredentialsError("cannot create a certificate container of " + std::to_string(length) +
                           " bytes; without filler it has " + std::to_string(shortest));
}

Bytes readContained(const std::string& path, const Key& key)
{
    const Bytes content = contentOf(path);
    if (const Container container = readContainer(content)) {
        if (!holdsCertificateOf(container.get(), key))
            throw CredentialsError(path + " contains no certificate of the private key");
        return encoded(container.get());
    }
    const Certificate certificate = readBareCertificate(content);
    if (certificate == nullptr)
        throw CredentialsError(path + " contains neither a certificate nor a PKCS #7 container in PEM or DER");
    if (!isCertificateOf(certificate.get(), key))
        throw CredentialsError("the certificate in " + path + " does not belong to the private key");
    return contained({certificate});
}

} // namespace VorelKestrel::Simulator
