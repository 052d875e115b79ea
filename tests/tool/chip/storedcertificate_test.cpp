#include "tool/chip/storedcertificate.h"

#include <string>

#include <gtest/gtest.h>

#include "tool/report/failure.h"

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

std::string causeOf(const Bytes& stored)
{
    try {
        parseCertificate(stored);
    } catch (const Failure& failure) {
        return failure.cause();
    }
    return "";
}

TEST(StoredCertificateTest, IsMissingOrUnreadable)
{
    EXPECT_EQ("no certificate", causeOf({}));
    EXPECT_EQ("unreadable certificate", causeOf({0x30, 0x03, 0x02, 0x01, 0x00}));
}

TEST(StoredCertificateTest, IsTheSameIfEveryByteIs)
{
    EXPECT_EQ(std::nullopt, findDifference({1, 2, 3}, {1, 2, 3}));
    EXPECT_EQ("the chip's certificate reads differently each time: byte 1 was 0x02, then 0x0a",
              findDifference({1, 2, 3}, {1, 0x0a, 0x0b}));
    EXPECT_EQ("the chip's certificate had 3 bytes, and 2 when read again", findDifference({1, 2, 3}, {1, 2}));
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
