#ifndef TOOL_CHIP_STOREDCERTIFICATE_H
#define TOOL_CHIP_STOREDCERTIFICATE_H

#include "common/bytes.h"
#include "tool/chip/certificate.h"

namespace VorelKestrel::Tool {

/// The certificate that a chip stores, parsed. Throws Failure.
Certificate parseCertificate(const Bytes& stored);

} // namespace VorelKestrel::Tool

#endif
