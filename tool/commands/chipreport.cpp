#include "tool/commands/chipreport.h"

#include <optional>
#include <stdexcept>

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include "common/hex.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

std::string inBytes(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string describe(const ChipLocation& location)
{
    return location.device + ", address " + toHex(static_cast<std::uint32_t>(location.address), 2);
}

Report startReport(const CommonOptions& options)
{
    Report report;
    report.text("device", describe(options.location))
        .json("device", options.location.device)
        .json("address", options.location.address);
    return report;
}

void addProtocol(Report& report, const Chip& chip)
{
    report
        .text("protocol",
              std::string(chip.generation().protocol) + ", device version " + std::to_string(chip.deviceVersion()))
        .json("protocol", chip.generation().protocol)
        .json("deviceVersion", chip.deviceVersion());
}

namespace {

/// The length that a DER value says it has, its header included; none if these bytes begin no such value.
std::optional<std::size_t> derLength(const Bytes& bytes)
{
    const std::uint8_t* position = bytes.data();
    long length = 0;
    int tag = 0;
    int kind = 0;
    const int result = ASN1_get_object(&position, &length, &tag, &kind, static_cast<long>(bytes.size()));
    ERR_clear_error();
    const bool isSequence = tag == V_ASN1_SEQUENCE && kind == V_ASN1_UNIVERSAL;
    if (bytes.empty() || !isSequence || (result & 0x01) != 0) // an indefinite length
        return std::nullopt;
    return static_cast<std::size_t>(position - bytes.data()) + static_cast<std::size_t>(length);
}

std::string explain(const Bytes& stored, const CertificateError& error)
{
    const auto length = derLength(stored);
    if (!length || *length == stored.size())
        return error.what();
    return "The chip reports " + inBytes(stored.size()) + ", and the certificate's own header says " +
           std::to_string(*length) + ": " + error.what();
}

} // namespace

Certificate parseCertificate(const Bytes& stored)
{
    try {
        return Certificate(stored.data(), stored.size());
    } catch (const CertificateError& error) {
        throw Failure(ExitStatus::Failed, "parse the " + inBytes(stored.size()) + " of the chip's certificate",
                      explain(stored, error),
                      "Read it again to rule the bus out; 'authchip certificate -o FILE' stores what the chip holds.");
    }
}

Bytes randomChallenge(const Generation& generation)
{
    Bytes challenge(generation.challengeLength);
    if (RAND_bytes(challenge.data(), static_cast<int>(challenge.size())) != 1)
        throw std::runtime_error("no random numbers");
    return challenge;
}

} // namespace VorelKestrel::Tool
