#ifndef TOOL_CHIP_STOREDCERTIFICATE_H
#define TOOL_CHIP_STOREDCERTIFICATE_H

#include <optional>
#include <string>

#include "common/bytes.h"
#include "tool/chip/certificate.h"
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

/// The cause of what comes over the bus differently each time.
inline constexpr char kBitErrors[] = "bit errors";
inline constexpr char kHowToMendTheBus[] =
    "Bits change on the bus: try a slower bus clock, and check the pull-ups, the length of the lines and the chip's\n"
    "supply.";
/// How two readings of one certificate differ.
struct Difference
{
    const char* cause;
    std::string found;
    const char* next;
};
/// None if the readings are the same.
std::optional<Difference> findDifference(const Bytes& first, const Bytes& second);

} // namespace VorelKestrel::Tool

#endif
