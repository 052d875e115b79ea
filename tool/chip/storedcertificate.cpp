#include "tool/chip/storedcertificate.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include "common/hex.h"
#include "common/numbers.h"
#include "common/opensslpointer.h"
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
                      "'authchip certificate -o FILE' stores what arrived; runs of ff or 00 come from the bus. "
                      "If these bytes come from a file, name the right one.");
    }
}

Bytes fromPem(const Bytes& content)
{
    constexpr std::string_view kKinds[] = {PEM_STRING_X509, PEM_STRING_X509_OLD, PEM_STRING_PKCS7,
                                           PEM_STRING_PKCS7_SIGNED, PEM_STRING_CMS};
    const BioPointer text(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    Bytes found = content;
    bool isFound = false;
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long length = 0;
    while (!isFound && PEM_read_bio(text.get(), &name, &header, &data, &length) == 1) {
        isFound = std::count(std::begin(kKinds), std::end(kKinds), name) > 0;
        if (isFound)
            found.assign(data, data + length);
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
    ERR_clear_error(); // the end of the text is an error to OpenSSL
    return found;
}

std::optional<std::string> findDifference(const Bytes& first, const Bytes& second)
{
    if (first == second)
        return std::nullopt;
    if (first.size() != second.size())
        return "the chip's certificate had " + inBytes(first.size()) + ", and " + std::to_string(second.size()) +
               " when read again";
    const auto differing = std::mismatch(first.begin(), first.end(), second.begin());
    return "the chip's certificate reads differently each time: byte " +
           std::to_string(differing.first - first.begin()) + " was " + toHex(*differing.first, 2) + ", then " +
           toHex(*differing.second, 2);
}

} // namespace VorelKestrel::Tool
