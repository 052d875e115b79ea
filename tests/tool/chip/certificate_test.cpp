#include "tool/chip/certificate.h"

#include <gtest/gtest.h>

#include "tests/tool/chip/credentials.h"
#include "tests/tool/chip/testpki.h"

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

Certificate parse(const Bytes& bytes)
{
    return {bytes.data(), bytes.size()};
}

std::string complaintAbout(const Bytes& bytes)
{
    try {
        parse(bytes);
    } catch (const CertificateError& error) {
        return error.what();
    }
    return "none";
}

TEST(CertificateTest, TellsWhatIsInTheContainerOfA20BChip)
{
    const auto certificate = parse(readTestFile("chip20b.p7"));
    EXPECT_TRUE(certificate.isInContainer());
    EXPECT_EQ("O=Test Maker, CN=Test Accessory 20b", certificate.subject());
    EXPECT_EQ("O=Test Maker, CN=Test Accessory CA", certificate.issuer());
    EXPECT_EQ("1f320b", certificate.serial());
    EXPECT_EQ("RSA 1024 bits", certificate.keyDescription());
}

TEST(CertificateTest, TellsWhatIsInABareCertificate)
{
    const auto certificate = parse(readTestFile("chip30.der"));
    EXPECT_FALSE(certificate.isInContainer());
    EXPECT_EQ("O=Test Maker, CN=Test Accessory 30", certificate.subject());
    EXPECT_EQ("EC prime256v1", certificate.keyDescription());
}

TEST(CertificateTest, TakesTheOneThatSignedNoOtherWhereverItStands)
{
    EXPECT_EQ("O=Test Maker, CN=Test Accessory 30", parse(readTestFile("chip30.p7")).subject());
    EXPECT_EQ("O=Test Maker, CN=Test Accessory 30", parse(readTestFile("issuer-first.p7")).subject());
}

TEST(CertificateTest, IsTheSameInAContainerAndBare)
{
    const auto contained = parse(readTestFile("chip30.p7"));
    const auto bare = parse(readTestFile("chip30.der"));
    EXPECT_EQ(bare.sha256(), contained.sha256());
    EXPECT_EQ(bare.pem(), contained.pem());
}

TEST(CertificateTest, HasAUsableKey)
{
    EXPECT_NE(nullptr, parse(readTestFile("chip20b.p7")).publicKey());
}

TEST(CertificateTest, RefusesNoBytes)
{
    EXPECT_EQ("no bytes at all", complaintAbout({}));
}

TEST(CertificateTest, RefusesBytesThatFollow)
{
    for (const char* name : {"chip30.p7", "chip30.der"}) {
        auto bytes = readTestFile(name);
        bytes.resize(bytes.size() + 3);
        EXPECT_EQ("3 bytes follow the certificate", complaintAbout(bytes)) << name;
    }
}

TEST(CertificateTest, RefusesAContainerOfAnotherKind)
{
    // ContentInfo { data, OCTET STRING "" }
    EXPECT_EQ("the PKCS #7 container is not of the kind that holds certificates",
              complaintAbout(*fromHex("300f06092a864886f70d010701a0020400")));
}

TEST(CertificateTest, RefusesAContainerWithoutCertificates)
{
    // SignedData { version 1, no digests, data, no certificates, no signers }
    EXPECT_EQ("the PKCS #7 container holds no certificate",
              complaintAbout(*fromHex("302306092a864886f70d010702a01630140201013100300b06092a864886f70d0107013100")));
}

TEST(CertificateTest, RefusesEveryTruncation)
{
    for (const char* name : {"chip20b.p7", "chip30.p7", "chip30.der"}) {
        auto bytes = readTestFile(name);
        while (!bytes.empty()) {
            bytes.pop_back();
            EXPECT_NE("none", complaintAbout(bytes)) << name << ", " << bytes.size() << " bytes";
        }
    }
}

TEST(CertificateTest, SurvivesEveryByteTurnedOver)
{
    const auto original = readTestFile("chip30.p7");
    for (std::size_t at = 0; at < original.size(); ++at) {
        auto bytes = original;
        bytes[at] = static_cast<std::uint8_t>(~bytes[at]);
        try {
            const auto certificate = parse(bytes);
            const std::string all = certificate.subject() + certificate.issuer() + certificate.serial() +
                                    certificate.notBefore() + certificate.notAfter() + certificate.keyDescription() +
                                    certificate.sha256() + certificate.pem();
            for (const char character : all)
                ASSERT_TRUE(character == '\n' || (character >= ' ' && character <= '~')) << "byte " << at;
        } catch (const CertificateError&) { // the other good answer
        }
    }
}

TEST(CertificateTest, FollowsTheIssuersThatTheContainerHolds)
{
    const auto root = testpki::makeRoot("Root");
    const auto middle = testpki::makeIssued(root, "Middle", {true});
    const auto chip = testpki::makeIssued(middle, "Chip");
    const auto chainOf = [](const std::vector<const X509*>& held) {
        const Bytes stored = testpki::contained(held);
        return Certificate(stored.data(), stored.size()).heldChain();
    };
    EXPECT_EQ((std::vector<std::string>{"CN=Chip", "CN=Middle", "CN=Root"}),
              chainOf({root.certificate.get(), chip.certificate.get(), middle.certificate.get()}));
    EXPECT_EQ((std::vector<std::string>{"CN=Chip"}), chainOf({chip.certificate.get(), root.certificate.get()}));
}

TEST(CertificateTest, FollowsARingOfIssuersOnce)
{
    const auto first = testpki::makeRoot("First");
    const auto second = testpki::makeIssued(first, "Second");
    const auto ring = testpki::makeIssued(second, "First");
    const Bytes stored = testpki::contained({ring.certificate.get(), second.certificate.get()});
    EXPECT_EQ(2U, Certificate(stored.data(), stored.size()).heldChain().size());
}

} // namespace
