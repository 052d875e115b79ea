#include "tool/chip/storedcertificate.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include "authchipdriver/registermap.h"
#include "common/bits.h"
#include "common/hex.h"
#include "common/numbers.h"
#include "common/opensslpointer.h"
#include "tool/chip/bitslip.h"
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

/// Where the filler at the end of a page begins; the page's length if there is none.
std::size_t placeOfFiller(const Bytes& page, std::uint8_t filler)
{
    const auto last = std::find_if(page.rbegin(), page.rend(), [=](std::uint8_t byte) { return byte != filler; });
    return static_cast<std::size_t>(page.rend() - last);
}

std::vector<Bytes> pagesOf(const Bytes& stored)
{
    std::vector<Bytes> pages;
    for (std::size_t begin = 0; begin < stored.size(); begin += ACD::kCertificatePageSize) {
        const std::size_t end = std::min<std::size_t>(stored.size(), begin + ACD::kCertificatePageSize);
        pages.emplace_back(stored.data() + begin, stored.data() + end);
    }
    return pages;
}

/// Whether more stands behind this place of the pages than a certificate holds of one value by chance. Several pages
/// that end alike show a short filler, too.
bool isFillerBehind(std::size_t place, const std::vector<Bytes>& pages)
{
    constexpr std::size_t kLeastInOnePage = 16;
    constexpr std::size_t kLeastInSeveral = 8;
    std::size_t filled = 0;
    int count = 0;
    for (const Bytes& page : pages) {
        if (page.size() <= place)
            continue;
        filled += page.size() - place;
        ++count;
    }
    return filled >= (count > 1 ? kLeastInSeveral : kLeastInOnePage);
}

/// Where the filler begins, if that is the same place in every page that is long enough; otherwise 0.
std::size_t commonPlaceOfFiller(const std::vector<Bytes>& pages, std::uint8_t filler)
{
    constexpr std::size_t kByChance = 4; // bytes before the filler that happen to be the same
    std::size_t latest = 0;
    for (const Bytes& page : pages)
        latest = std::max(latest, placeOfFiller(page, filler));
    const bool isSame = std::all_of(pages.begin(), pages.end(), [&](const Bytes& page) {
        return page.size() <= latest || placeOfFiller(page, filler) + kByChance >= latest;
    });
    return pages.size() > 1 && isSame && isFillerBehind(latest, pages) ? latest : 0;
}

/// The byte that fills the certificate; none if there are others in it. A memory that nobody wrote holds one only.
std::optional<std::uint8_t> onlyByteOf(const Bytes& stored)
{
    const bool isEmpty = std::adjacent_find(stored.begin(), stored.end(), std::not_equal_to<>()) == stored.end();
    return isEmpty && stored.size() > 1 ? std::optional(stored.front()) : std::nullopt;
}

/// Whether the header of a certificate arrived one bit early or late: 30 82 as 18 41 (or 98 41), or as 61 04 (or 61
/// 05).
bool isShifted(const Bytes& stored)
{
    constexpr unsigned kHeader = 0x3082; // a sequence whose length is written in two bytes
    if (stored.size() < 2)
        return false;
    const unsigned header = stored[0] * 256U + stored[1];
    return (header & 0x7fffU) == kHeader >> 1U || header >> 1U == kHeader;
}

/// What the bytes themselves tell.
std::optional<Failure> explainContent(const Bytes& stored)
{
    const std::string tried = "parse the " + inBytes(stored.size()) + " of the chip's certificate";
    if (const auto limit = findReadLimit(stored))
        return explainReadLimit(*limit);
    if (const auto only = onlyByteOf(stored))
        return Failure("no certificate", tried, "Each of them is " + toHex(*only, 2) + ", as in an empty memory",
                       "If the chip's other registers read as they should ('authchip info'), it was delivered without "
                       "a certificate:\nreplace it. Otherwise check the data line.");
    if (isShifted(stored))
        return Failure(kBitErrors, tried,
                       "All of them are shifted by one bit: the first is " + toHex(stored[0], 2) +
                           ", and a certificate begins with 0x30",
                       kHowToMendTheSlip);
    return std::nullopt;
}

/// The number of the first page that one byte fills, as of a part of the memory that is empty or defective; 0: none.
std::size_t findFilledPage(const std::vector<Bytes>& pages)
{
    constexpr std::size_t kShortest = 16; // the last page may be cut
    const auto page = std::find_if(pages.begin(), pages.end(),
                                   [](const Bytes& each) { return each.size() >= kShortest && onlyByteOf(each); });
    return page == pages.end() ? 0 : static_cast<std::size_t>(page - pages.begin()) + 1;
}

constexpr char kCompareReadings[] =
    "'authchip certificate -o FILE' stores what arrived. If it differs each time, check the bus. If it is always the\n"
    "same, the chip's memory is defective, or another device has the chip's address, too ('i2cdetect' while the chip "
    "is\n"
    "held in reset). If these bytes come from a file, name the right one.";

std::string explain(const Bytes& stored, const CertificateError& error)
{
    const auto length = derLength(stored);
    const std::vector<Bytes> pages = pagesOf(stored);
    const std::size_t filled = findFilledPage(pages);
    if ((!length || *length == stored.size()) && filled > 0)
        return "Page " + std::to_string(filled) + " holds nothing but " + toHex(pages[filled - 1].front(), 2) + ": " +
               error.what();
    if (!length || *length == stored.size())
        return error.what();
    return "The chip reports " + inBytes(stored.size()) + ", and the certificate's own header says " +
           std::to_string(*length) + ": " + error.what();
}

std::string describeDifference(const Bytes& first, const Bytes& second)
{
    if (first.size() != second.size())
        return "the chip's certificate had " + inBytes(first.size()) + ", and " + std::to_string(second.size()) +
               " when read again";
    const auto differing = std::mismatch(first.begin(), first.end(), second.begin());
    return "the chip's certificate reads differently each time: byte " +
           std::to_string(differing.first - first.begin()) + " was " + toHex(*differing.first, 2) + ", then " +
           toHex(*differing.second, 2);
}

/// Whether a page, or the length, was read from another register one time.
bool isOfAnotherRegister(const Bytes& first, const Bytes& second)
{
    constexpr std::size_t kQuarter = 4;
    if (first.size() != second.size())
        return isUnrelated(bigEndian16(first.size()), bigEndian16(second.size()), kQuarter);
    const std::vector<Bytes> pages = pagesOf(first);
    const std::vector<Bytes> again = pagesOf(second);
    return !std::equal(pages.begin(), pages.end(), again.begin(),
                       [](const Bytes& one, const Bytes& other) { return !isUnrelated(one, other, kQuarter); });
}

} // namespace

Certificate parseCertificate(const Bytes& stored)
{
    try {
        return Certificate(stored.data(), stored.size());
    } catch (const CertificateError& error) {
        if (const auto failure = explainContent(stored))
            throw Failure(*failure);
        throw Failure(stored.empty() ? "no certificate" : "unreadable certificate",
                      "parse the " + inBytes(stored.size()) + " of the chip's certificate", explain(stored, error),
                      kCompareReadings);
    }
}

std::optional<ReadLimit> findReadLimit(const Bytes& stored)
{
    const std::vector<Bytes> pages = pagesOf(stored);
    for (const std::uint8_t filler : {std::uint8_t{0xff}, std::uint8_t{0x00}}) {
        if (const std::size_t place = commonPlaceOfFiller(pages, filler))
            return ReadLimit{place, filler};
    }
    return std::nullopt;
}

Failure explainReadLimit(const ReadLimit& limit)
{
    const std::string bytes = inBytes(limit.bytes);
    return {"message too long", "read the chip's certificate in pages of up to 128 bytes",
            "The first " + bytes + " of each page came, and then only " + toHex(limit.filler, 2),
            "The bus controller or its driver ends each read after " + bytes +
                " and does not report it. The library cannot split\n"
                "the pages. Use another bus, or the pins of this one with the driver i2c-gpio."};
}

Bytes fromPem(const Bytes& content)
{
    constexpr std::string_view kPemKinds[] = {PEM_STRING_X509, PEM_STRING_X509_OLD, PEM_STRING_PKCS7,
                                              PEM_STRING_PKCS7_SIGNED, PEM_STRING_CMS};
    const BioPointer text = readerOf(content);
    Bytes found = content;
    bool isFound = false;
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long length = 0;
    while (!isFound && PEM_read_bio(text.get(), &name, &header, &data, &length) == 1) {
        isFound = std::count(std::begin(kPemKinds), std::end(kPemKinds), name) > 0;
        if (isFound)
            found.assign(data, data + length);
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
    ERR_clear_error(); // the end of the text is an error to OpenSSL
    return found;
}

std::optional<Difference> findDifference(const Bytes& first, const Bytes& second)
{
    if (first == second)
        return std::nullopt;
    return explainDifference(describeDifference(first, second), isOfAnotherRegister(first, second));
}

} // namespace VorelKestrel::Tool
