#include "tool/chip/storedcertificate.h"

#include <optional>

#include <openssl/asn1.h>
#include <openssl/err.h>

#include "common/numbers.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
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
        throw Failure(stored.empty() ? "no certificate" : "unreadable certificate",
                      "parse the " + inBytes(stored.size()) + " of the chip's certificate", explain(stored, error),
                      "Read it again to rule the bus out; 'authchip certificate -o FILE' stores what the chip holds.");
    }
}

} // namespace VorelKestrel::Tool
