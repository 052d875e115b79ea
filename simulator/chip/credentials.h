#ifndef SIMULATOR_CHIP_CREDENTIALS_H
#define SIMULATOR_CHIP_CREDENTIALS_H

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

#include <openssl/evp.h>

#include "common/bytes.h"
#include "common/opensslpointer.h"
#include "simulator/chip/generation.h"

namespace VorelKestrel::Simulator {

/// A key or a certificate that cannot be made, read or used; what() says which and why.
class CredentialsError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/**
 * The private key of a chip, and its certificate: X.509 in a DER PKCS #7 container that holds certificates only.
 *
 * Threads:   const operations may be called from any thread.
 * Errors:    CredentialsError is thrown.
 */
class Credentials
{
public:
    /// A new key with a self-signed certificate. The container has @p certificateLength bytes; 0 leaves its length
    /// open.
    static Credentials generate(const Generation& generation, std::size_t certificateLength = 0);

    /**
     * Reads a key (PEM or DER) and a certificate (PEM or DER, bare or in a PKCS #7 container) from files. An empty
     * @p certificateFile stands for a self-signed certificate of @p certificateLength bytes, made here.
     * A container is kept with all that is in it.
     */
    static Credentials load(const Generation& generation, const std::string& keyFile,
                            const std::string& certificateFile, std::size_t certificateLength = 0);

    /// Signs a challenge of the generation's length as the digest that it is. The result is as long as its response.
    Bytes sign(const Bytes& challenge) const;

    /// The DER PKCS #7 container.
    const Bytes& certificate() const { return m_certificate; }
    const Generation& generation() const { return *m_generation; }

private:
    using Key = OpensslPointer<EVP_PKEY, EVP_PKEY_free>;

    Credentials(const Generation& generation, Key key, Bytes certificate);

    const Generation* m_generation; // never null
    Key m_key;
    Bytes m_certificate;
};

} // namespace VorelKestrel::Simulator

#endif
