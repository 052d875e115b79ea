#ifndef TESTS_TOOL_CHIP_TESTPKI_H
#define TESTS_TOOL_CHIP_TESTPKI_H

#include <string>
#include <vector>

#include <openssl/x509.h>

#include "common/bytes.h"
#include "common/opensslpointer.h"

/// Certificates for tests, made at once and forgotten at the end.
namespace testpki {

using Key = VorelKestrel::OpensslPointer<EVP_PKEY, EVP_PKEY_free>;
using Certificate = VorelKestrel::OpensslPointer<X509, X509_free>;

/// A certificate and its private key.
struct Identity
{
    Key key;
    Certificate certificate;
};

/// How a certificate differs from an ordinary one.
struct Wishes
{
    bool isCa = false;
    int pathLength = -1;           // of a CA; negative: any
    long notBefore = -3600;        // seconds from now
    long notAfter = 3600;          // seconds from now
    const char* digest = "SHA256"; // of the issuer's signature
    const char* keyType = "P-256"; // or "RSA"
    unsigned rsaBits = 2048;
    const char* criticalExtension = nullptr; // the object identifier of one that nobody knows
};

/// A self-signed certificate, of a CA unless wished otherwise.
Identity makeRoot(const std::string& name, const Wishes& wishes = {true});
Identity makeIssued(const Identity& issuer, const std::string& name, const Wishes& wishes = {});

/// As a chip holds them: a PKCS #7 container in DER.
VorelKestrel::Bytes contained(const std::vector<const X509*>& certificates);
std::string inPem(const X509* certificate);
VorelKestrel::Bytes inDer(const X509* certificate);
/// A revocation list in PEM, valid from an hour ago for @p seconds from now.
std::string revocationList(const Identity& issuer, const std::vector<const X509*>& revoked, long seconds = 3600);

} // namespace testpki

#endif
