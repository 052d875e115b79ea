#include "tests/tool/chip/testpki.h"

#include <stdexcept>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

namespace testpki {
namespace {

using Bio = VorelKestrel::BioPointer;
using Container = VorelKestrel::OpensslPointer<PKCS7, PKCS7_free>;
using Extension = VorelKestrel::OpensslPointer<X509_EXTENSION, X509_EXTENSION_free>;
using List = VorelKestrel::OpensslPointer<X509_CRL, X509_CRL_free>;
using ObjectName = VorelKestrel::OpensslPointer<ASN1_OBJECT, ASN1_OBJECT_free>;
using OctetString = VorelKestrel::OpensslPointer<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using Time = VorelKestrel::OpensslPointer<ASN1_TIME, ASN1_TIME_free>;

void check(bool isGood, const char* what)
{
    if (!isGood)
        throw std::runtime_error(what);
}

std::string contentOf(const Bio& bio)
{
    const char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

Key makeKey(const Wishes& wishes)
{
    const bool isRsa = std::string(wishes.keyType) == "RSA";
    Key key(isRsa ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<std::size_t>(wishes.rsaBits))
                  : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", wishes.keyType));
    check(key != nullptr, "making a key failed");
    return key;
}

void addExtension(X509* certificate, X509* issuer, int kind, const std::string& value)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    check(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, "adding an extension failed");
}

void addUnknownExtension(X509* certificate, const char* identifier)
{
    const ObjectName object(OBJ_txt2obj(identifier, 1));
    const OctetString value(ASN1_OCTET_STRING_new());
    ASN1_OCTET_STRING_set(value.get(), reinterpret_cast<const unsigned char*>("x"), 1);
    const Extension extension(X509_EXTENSION_create_by_OBJ(nullptr, object.get(), 1, value.get()));
    check(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, "adding an extension failed");
}

void setSerial(X509* certificate)
{
    static long next = 1;
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), next++);
}

/// Everything but the issuer and the signature.
Identity prepare(const std::string& name, const Wishes& wishes)
{
    Identity identity{makeKey(wishes), Certificate(X509_new())};
    X509* certificate = identity.certificate.get();
    X509_set_version(certificate, X509_VERSION_3);
    setSerial(certificate);
    X509_gmtime_adj(X509_getm_notBefore(certificate), wishes.notBefore);
    X509_gmtime_adj(X509_getm_notAfter(certificate), wishes.notAfter);
    X509_set_pubkey(certificate, identity.key.get());
    const auto* text = reinterpret_cast<const unsigned char*>(name.c_str());
    check(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1,
          "naming a certificate failed");
    return identity;
}

void finish(X509* certificate, X509* issuer, EVP_PKEY* issuersKey, const Wishes& wishes)
{
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
    const std::string pathLength = wishes.pathLength < 0 ? "" : ",pathlen:" + std::to_string(wishes.pathLength);
    addExtension(certificate, issuer, NID_basic_constraints,
                 wishes.isCa ? "critical,CA:TRUE" + pathLength : "CA:FALSE");
    if (wishes.criticalExtension != nullptr)
        addUnknownExtension(certificate, wishes.criticalExtension);
    check(X509_sign(certificate, issuersKey, EVP_get_digestbyname(wishes.digest)) > 0, "signing a certificate failed");
}

} // namespace

Identity makeRoot(const std::string& name, const Wishes& wishes)
{
    Identity identity = prepare(name, wishes);
    finish(identity.certificate.get(), identity.certificate.get(), identity.key.get(), wishes);
    return identity;
}

Identity makeIssued(const Identity& issuer, const std::string& name, const Wishes& wishes)
{
    Identity identity = prepare(name, wishes);
    finish(identity.certificate.get(), issuer.certificate.get(), issuer.key.get(), wishes);
    return identity;
}

VorelKestrel::Bytes contained(const std::vector<const X509*>& certificates)
{
    const Container container(PKCS7_new());
    PKCS7_set_type(container.get(), NID_pkcs7_signed);
    PKCS7_content_new(container.get(), NID_pkcs7_data);
    PKCS7_set_detached(container.get(), 1);
    for (const X509* each : certificates)
        check(PKCS7_add_certificate(container.get(), const_cast<X509*>(each)) == 1, "filling a container failed");
    VorelKestrel::Bytes bytes(static_cast<std::size_t>(i2d_PKCS7(container.get(), nullptr)));
    unsigned char* end = bytes.data();
    i2d_PKCS7(container.get(), &end);
    return bytes;
}

std::string inPem(const X509* certificate)
{
    const Bio bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(bio.get(), const_cast<X509*>(certificate));
    return contentOf(bio);
}

VorelKestrel::Bytes inDer(const X509* certificate)
{
    VorelKestrel::Bytes bytes(static_cast<std::size_t>(i2d_X509(certificate, nullptr)));
    unsigned char* end = bytes.data();
    i2d_X509(certificate, &end);
    return bytes;
}

std::string revocationList(const Identity& issuer, const std::vector<const X509*>& revoked, long seconds)
{
    const List list(X509_CRL_new());
    X509_CRL_set_version(list.get(), X509_CRL_VERSION_2);
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(issuer.certificate.get()));
    const Time start(X509_gmtime_adj(nullptr, -7200));
    const Time end(X509_gmtime_adj(nullptr, seconds));
    X509_CRL_set1_lastUpdate(list.get(), start.get());
    X509_CRL_set1_nextUpdate(list.get(), end.get());
    for (const X509* each : revoked) {
        X509_REVOKED* entry = X509_REVOKED_new();
        X509_REVOKED_set_serialNumber(entry, const_cast<ASN1_INTEGER*>(X509_get0_serialNumber(each)));
        X509_REVOKED_set_revocationDate(entry, start.get());
        X509_CRL_add0_revoked(list.get(), entry); // takes it
    }
    check(X509_CRL_sign(list.get(), issuer.key.get(), EVP_sha256()) > 0, "signing a revocation list failed");
    const Bio bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509_CRL(bio.get(), list.get());
    return contentOf(bio);
}

} // namespace testpki
