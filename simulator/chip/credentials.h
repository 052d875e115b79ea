#ifndef SIMULATOR_CHIP_CREDENTIALS_H
#define SIMULATOR_CHIP_CREDENTIALS_H

#include <cstddef>
#include <functional>
#include <string>

#include "common/bytes.h"
#include "simulator/chip/certificates.h"
#include "simulator/chip/credentialserror.h"
#include "simulator/chip/generation.h"
#include "simulator/chip/keys.h"

namespace VorelKestrel::Simulator {

/**
 * What a chip authenticates with: a signing function, and an X.509 certificate in a DER PKCS #7 container that contains
 * only certificates.
 *
 * Threads:   const operations may be called from any thread.
 * Errors:    CredentialsError is thrown.
 */
class Credentials
{
public:
    /// The answer to a challenge.
    using Signer = std::function<Bytes(const Bytes& challenge)>;

    /// The signer may be called from any thread.
    Credentials(const Generation& generation, Bytes certificate, Signer signer);

    /// A new key with a self-signed certificate, in a container of @p certificateLength bytes (0: any length).
    static Credentials generate(const Generation& generation, std::size_t certificateLength = 0);

    /**
     * Reads a key (PEM or DER) and a certificate (PEM or DER, bare or in a PKCS #7 container) from files. Without
     * @p certificateFile, creates a self-signed certificate of @p certificateLength bytes. A container is kept
     * unchanged.
     */
    static Credentials load(const Generation& generation, const std::string& keyFile,
                            const std::string& certificateFile, std::size_t certificateLength = 0);

    /// A new certificate for the key. @p issuer null: self-signed.
    static Credentials issue(const Generation& generation, const Key& key, const Issuer* issuer,
                             std::size_t certificateLength = 0);

    /// Signs a challenge of the generation's length, which is used as the digest. The result has the response length.
    Bytes sign(const Bytes& challenge) const { return m_signer(challenge); }

    /// The DER PKCS #7 container.
    const Bytes& certificate() const { return m_certificate; }
    const Generation& generation() const { return *m_generation; }

private:
    const Generation* m_generation; // never null
    Bytes m_certificate;
    Signer m_signer;
};

/// The signing function of a chip with this key.
Credentials::Signer signerWith(const Generation& generation, const Key& key);
/// Reads a key. Throws CredentialsError if it is not of the generation's kind.
Key readKeyOf(const Generation& generation, const std::string& keyFile);

} // namespace VorelKestrel::Simulator

#endif
