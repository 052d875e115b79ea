#ifndef TOOL_CHIP_TRUST_H
#define TOOL_CHIP_TRUST_H

#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <openssl/types.h>

#include "tool/chip/certificate.h"

namespace VorelKestrel::Tool {

/// Whom the user trusts to issue certificates, and on what terms.
struct TrustOptions
{
    std::vector<std::string> issuers;         // files (PEM or DER, one or many certificates) or folders of such files
    std::vector<std::string> revocationLists; // files, PEM or DER
    bool checksTime = true;
    std::optional<std::time_t> at;                  // checks the dates at this time; none: now
    std::time_t (*clock)(std::time_t*) = std::time; // tells what time it is now
};

/// One thing that was looked at.
struct TrustCheck
{
    enum class Result
    {
        Passed,
        Failed,
        Skipped
    };

    const char* name; // for programs: "issuer"
    Result result;
    const char* cause; // for programs, of a failure: "unknown issuer"; null otherwise
    std::string found; // for people
    const char* next;  // what to do about a failure; null otherwise
};

/// What a certificate is worth: every check, in a fixed order.
struct TrustReport
{
    std::vector<TrustCheck> checks;
    std::vector<std::string>
        chain; // the subjects from the chip's certificate to the trusted one; empty without issuers

    bool isClockWrong = false; // the dates failed, and it cannot be as early as the clock says

    /// The first check that failed; null if none did.
    const TrustCheck* failure() const;
};

/**
 * Examines the certificates of chips. OpenSSL builds and verifies the chain; the container's other certificates may be
 * part of it, and never are trusted themselves.
 *
 * The least that is accepted: RSA keys of 1024 bits (the keys of protocol 2.0B), keys on curves of 224 bits, and
 * certificates signed with a digest of SHA-1 or better. What is below today's usual minimum (RSA of 2048 bits, SHA-256)
 * is accepted and said.
 *
 * Errors: Failure if a file cannot be read or holds nothing of use.
 */
class Trust
{
public:
    explicit Trust(TrustOptions options);

    TrustReport examine(const Certificate& certificate) const;

private:
    TrustOptions m_options;
    std::shared_ptr<X509_STORE> m_store; // never null
};

} // namespace VorelKestrel::Tool

#endif
