#ifndef TESTS_SIMULATOR_CHIP_SIGNATURECHECK_H
#define TESTS_SIMULATOR_CHIP_SIGNATURECHECK_H

#include "common/bytes.h"

/// The number of certificates in a DER PKCS #7 container; -1 if it is none.
int certificateCount(const VorelKestrel::Bytes& container);

/// Whether a response answers the challenge, by the public key of the first certificate in a DER PKCS #7 container:
/// RSA PKCS #1 v1.5 over the challenge as a SHA-1 digest, or ECDSA (r then s) over it as a SHA-256 digest.
bool isAuthentic(const VorelKestrel::Bytes& container, const VorelKestrel::Bytes& challenge,
                 const VorelKestrel::Bytes& response);

#endif
