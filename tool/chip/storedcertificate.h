#ifndef TOOL_CHIP_STOREDCERTIFICATE_H
#define TOOL_CHIP_STOREDCERTIFICATE_H

#include <optional>
#include <string>

#include "common/bytes.h"
#include "tool/chip/certificate.h"
#include "tool/chip/rereading.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/// The certificate that a chip stores, parsed. Throws Failure.
Certificate parseCertificate(const Bytes& stored);
/// What a bus controller does that delivers only the first bytes of each read, and fills the rest.
struct ReadLimit
{
    std::size_t bytes;
    std::uint8_t filler;
};
/// None unless the same filler begins in the same place of all pages.
std::optional<ReadLimit> findReadLimit(const Bytes& stored);
Failure explainReadLimit(const ReadLimit& limit);

/// What the bytes of a file hold in PEM, in DER; bytes that are no certificate in PEM come back as they are.
Bytes fromPem(const Bytes& content);

/// How two readings of one certificate differ; none if they are the same.
std::optional<Difference> findDifference(const Bytes& first, const Bytes& second);

} // namespace VorelKestrel::Tool

#endif
