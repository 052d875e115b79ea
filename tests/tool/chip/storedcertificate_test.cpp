#include "tool/chip/storedcertificate.h"

#include <algorithm>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "tests/tool/chip/credentials.h"
#include "tool/report/failure.h"

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

std::optional<Failure> failureOf(const Bytes& stored)
{
    try {
        parseCertificate(stored);
    } catch (const Failure& failure) {
        return failure;
    }
    return std::nullopt;
}

std::string causeOf(const Bytes& stored)
{
    const auto failure = failureOf(stored);
    return failure ? failure->cause() : "";
}

std::string explanationOf(const Bytes& stored)
{
    const auto failure = failureOf(stored);
    return failure ? failure->answer() : "";
}

TEST(StoredCertificateTest, IsMissingOrUnreadable)
{
    EXPECT_EQ("no certificate", causeOf({}));
    EXPECT_EQ("unreadable certificate", causeOf({0x30, 0x03, 0x02, 0x01, 0x00}));
}

TEST(StoredCertificateTest, OfAnEmptyMemoryIsNone)
{
    for (const std::uint8_t filler : {std::uint8_t{0xff}, std::uint8_t{0x00}})
        EXPECT_EQ("no certificate", causeOf(Bytes(397, filler)));
    EXPECT_EQ("Each of them is 0xff, as in an empty memory", explanationOf(Bytes(397, 0xff)));
    Bytes almost(397, 0xff);
    almost.back() = 0xfe;
    EXPECT_EQ("unreadable certificate", causeOf(almost));
    EXPECT_EQ("unreadable certificate", causeOf({0xff})) << "a byte is no memory";
}

TEST(StoredCertificateTest, NamesAPageThatOneByteFills)
{
    Bytes certificate(397, 0x42); // of three pages of 128 bytes, and a bit
    for (std::size_t i = 0; i < certificate.size(); ++i)
        certificate[i] = static_cast<std::uint8_t>(i);
    EXPECT_EQ(std::string::npos, explanationOf(certificate).find("Page"));
    std::fill_n(certificate.begin() + 256, 128, std::uint8_t{0xff});
    EXPECT_EQ(0U, explanationOf(certificate).find("Page 3 holds nothing but 0xff: "));
    std::fill_n(certificate.begin(), 128, std::uint8_t{0});
    EXPECT_EQ(0U, explanationOf(certificate).find("Page 1 holds nothing but 0x00: "));
}

TEST(StoredCertificateTest, ThatIsShiftedByOneBitIsNamed)
{
    // 30 82 a bit late behind a 0 or a 1, and a bit early before a 0 or a 1.
    for (const Bytes& header : {Bytes{0x18, 0x41}, Bytes{0x98, 0x41}, Bytes{0x61, 0x04}, Bytes{0x61, 0x05}})
        EXPECT_EQ("bit errors", causeOf(header)) << std::hex << static_cast<int>(header[0]);
    EXPECT_EQ("All of them are shifted by one bit: the first is 0x18, and a certificate begins with 0x30",
              explanationOf({0x18, 0x41, 0x01, 0xc5}));
    for (const Bytes& header : {Bytes{0x18, 0x40}, Bytes{0x61, 0x06}, Bytes{0x30, 0x82}, Bytes{0x18}})
        EXPECT_EQ("unreadable certificate", causeOf(header)) << std::hex << static_cast<int>(header[0]);
}

std::string differenceOf(const Bytes& first, const Bytes& second)
{
    const auto difference = findDifference(first, second);
    return difference ? difference->found : "none";
}

std::string causeOfDifference(const Bytes& first, const Bytes& second)
{
    const auto difference = findDifference(first, second);
    return difference ? difference->cause : "none";
}

TEST(StoredCertificateTest, IsTheSameIfEveryByteIs)
{
    EXPECT_EQ("none", differenceOf({1, 2, 3}, {1, 2, 3}));
    EXPECT_EQ("the chip's certificate reads differently each time: byte 1 was 0x02, then 0x0a",
              differenceOf({1, 2, 3}, {1, 0x0a, 0x0b}));
    EXPECT_EQ("the chip's certificate had 3 bytes, and 2 when read again", differenceOf({1, 2, 3}, {1, 2}));
}

TEST(StoredCertificateTest, ThatDiffersInAQuarterOfThePagesBitsWasReadFromAnotherRegister)
{
    const Bytes certificate(300, 0x00);
    Bytes again = certificate;
    std::fill(again.begin() + 128, again.begin() + 160, std::uint8_t{0xff}); // of the second page, one byte in four
    EXPECT_EQ("bit errors", causeOfDifference(certificate, again));
    again[160] = 0x01;
    EXPECT_EQ("bus shared", causeOfDifference(certificate, again));
    EXPECT_EQ(
        "the chip's certificate reads differently each time: byte 128 was 0x00, then 0xff, as if another register had "
        "been read",
        differenceOf(certificate, again));
}

TEST(StoredCertificateTest, WhoseLengthDiffersInAQuarterOfTheBitsWasReadFromAnotherRegister)
{
    EXPECT_EQ("bit errors", causeOfDifference(Bytes(0x18d), Bytes(0x180))); // three bits
    EXPECT_EQ("bus shared", causeOfDifference(Bytes(0x18d), Bytes(0x300))); // five bits
}

Bytes bytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

std::string inPem(const std::string& kind, const std::string& base64)
{
    std::string text = "-----BEGIN ";
    text.append(kind).append("-----\n").append(base64).append("\n-----END ").append(kind).append("-----\n");
    return text;
}

TEST(StoredCertificateTest, ComesOutOfPemWhateverStandsBeforeIt)
{
    const Bytes der = {0x30, 0x00};
    for (const std::string kind : {"CERTIFICATE", "X509 CERTIFICATE", "PKCS7", "PKCS #7 SIGNED DATA", "CMS"}) {
        std::string text = "subject=CN = chip\n";
        text.append(inPem("PRIVATE KEY", "MAECAQ==")).append(inPem(kind, "MAA="));
        EXPECT_EQ(der, fromPem(bytesOf(text))) << kind;
    }
    EXPECT_EQ(der, fromPem(der));
    EXPECT_EQ(Bytes(), fromPem({}));
    const Bytes none = bytesOf(inPem("PRIVATE KEY", "MAA="));
    EXPECT_EQ(none, fromPem(none));
}

/// As a controller delivers it that fills each read behind this many bytes.
Bytes cutAt(std::size_t limit, std::uint8_t filler, Bytes stored)
{
    constexpr std::size_t kPage = 128;
    for (std::size_t i = 0; i < stored.size(); ++i) {
        if (i % kPage >= limit)
            stored[i] = filler;
    }
    return stored;
}

TEST(StoredCertificateTest, ShowsTheLimitOfABusControllerInTheSamePlaceOfEachPage)
{
    const Bytes whole = readTestFile("chip30.p7");
    EXPECT_FALSE(findReadLimit(whole));
    for (const std::uint8_t filler : {std::uint8_t{0xff}, std::uint8_t{0x00}}) {
        const auto limit = findReadLimit(cutAt(32, filler, whole));
        ASSERT_TRUE(limit);
        EXPECT_EQ(32U, limit->bytes);
        EXPECT_EQ(filler, limit->filler);
    }
    Bytes onePage = whole;
    std::fill(onePage.begin() + 128 + 32, onePage.begin() + 256, std::uint8_t{0xff});
    EXPECT_FALSE(findReadLimit(onePage));                   // the others are whole
    EXPECT_FALSE(findReadLimit(Bytes(whole.size(), 0xff))); // nobody delivers anything
    Bytes begun(whole.size(), 0x00);
    std::copy_n(whole.begin(), 32, begun.begin());
    EXPECT_FALSE(findReadLimit(begun)); // a chip that holds nothing more
}

TEST(StoredCertificateTest, ShowsALimitNearTheEndOfAPageIfSeveralPagesEndAlike)
{
    const Bytes whole = readTestFile("chip30.p7"); // six pages of 128 bytes, and a part of one
    for (std::size_t bytes = 113; bytes <= 126; ++bytes) {
        const auto limit = findReadLimit(cutAt(bytes, 0xff, whole));
        ASSERT_TRUE(limit) << bytes;
        EXPECT_EQ(bytes, limit->bytes);
    }
    EXPECT_FALSE(findReadLimit(cutAt(127, 0xff, whole))); // by chance a certificate ends its pages so
    const Bytes fourPages(whole.begin(), whole.begin() + 512);
    EXPECT_TRUE(findReadLimit(cutAt(126, 0xff, fourPages)));
    const Bytes oneByteLess(whole.begin(), whole.begin() + 511);
    EXPECT_FALSE(findReadLimit(cutAt(126, 0xff, oneByteLess)));
    const Bytes onePage(whole.begin(), whole.begin() + 200);
    EXPECT_TRUE(findReadLimit(cutAt(112, 0xff, onePage)));
    EXPECT_FALSE(findReadLimit(cutAt(113, 0xff, onePage)));
}

TEST(StoredCertificateTest, SaysWhichLengthItsOwnHeaderHas)
{
    try {
        parseCertificate({0x30, 0x82, 0x01, 0x00, 0x00});
        FAIL() << "that is no certificate";
    } catch (const Failure& failure) {
        EXPECT_NE(std::string::npos, failure.answer().find("The chip reports 5 bytes, and the certificate's own header "
                                                           "says 260"))
            << failure.answer();
    }
}

} // namespace
