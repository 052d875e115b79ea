#ifndef TOOL_CHIP_STOREDCERTIFICATE_H
#define TOOL_CHIP_STOREDCERTIFICATE_H

#include "common/bytes.h"
#include "tool/chip/certificate.h"

namespace VorelKestrel::Tool {

/// The certificate that a chip stores, parsed. Throws Failure.
Certificate parseCertificate(const Bytes& stored);
/// What the bytes of a file hold in PEM, in DER; bytes that are no certificate in PEM come back as they are.
Bytes fromPem(const Bytes& content);

} // namespace VorelKestrel::Tool

#endif
