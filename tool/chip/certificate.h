#ifndef TOOL_CHIP_CERTIFICATE_H
#define TOOL_CHIP_CERTIFICATE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <openssl/types.h>

namespace VorelKestrel::Tool {

/// The bytes are no certificate; what() says why.
class CertificateError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// "CN=Accessory, O=Maker": ASCII, with everything else escaped.
std::string nameAsText(const X509_NAME* name);
/// "RSA 1024 bits", "EC prime256v1", or "unknown" for null: a key that OpenSSL cannot use.
std::string describeKey(const EVP_PKEY* key);

/**
 * An accessory certificate as the chip stores it: X.509 in DER, alone or in a PKCS #7 container of certificates only.
 * Of several certificates in the container it is the one that signed none of the others.
 *
 * The bytes come over a wire from a device that nobody has vouched for yet, so every input is survived. Nothing is
 * said about who signed the certificate.
 *
 * Errors: CertificateError from the constructor, std::bad_alloc from all.
 */
class Certificate
{
public:
    /// Parses @p length bytes at @p data, all of them.
    Certificate(const std::uint8_t* data, std::size_t length);

    bool isInContainer() const { return m_isInContainer; }
    std::string subject() const;
    std::string issuer() const;
    /// Hexadecimal, whole bytes: "01f3".
    std::string serial() const;
    /// "2026-01-31T12:00:00Z", or "invalid".
    std::string notBefore() const;
    std::string notAfter() const;
    std::string keyDescription() const;
    /// The digest of the X.509 certificate, without its container.
    std::string sha256() const;
    std::string pem() const;
    /// Owned by the certificate. Null for a key that OpenSSL cannot use.
    EVP_PKEY* publicKey() const;
    /// Owned by the certificate; never null.
    X509* x509() const { return m_certificate.get(); }
    /// The container's other certificates, of issuers as a rule. Nobody vouches for them.
    const std::vector<std::shared_ptr<X509>>& companions() const { return m_companions; }
    /// The subjects from this certificate upward, as far as the container has the issuers. Names only: nothing is
    /// verified.
    std::vector<std::string> heldChain() const;

private:
    std::shared_ptr<X509> m_certificate; // never null
    std::vector<std::shared_ptr<X509>> m_companions;
    bool m_isInContainer = false;
};

} // namespace VorelKestrel::Tool

#endif
