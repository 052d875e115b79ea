#include "tool/chip/trust.h"

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/temporarydirectory.h"
#include "tests/tool/chip/testpki.h"
#include "tool/report/failure.h"

using namespace testsupport;

namespace {

using namespace VorelKestrel::Tool;
using testing::ElementsAre;
using testing::HasSubstr;
using VorelKestrel::Bytes;

using Result = TrustCheck::Result;
constexpr long kDay = 24L * 3600;

class TrustTest : public testing::Test
{
protected:
    std::string store(const std::string& name, const std::string& content)
    {
        std::ofstream(m_folder.path() + "/" + name, std::ios::binary) << content;
        return m_folder.path() + "/" + name;
    }
    std::string storeIssuer(const testpki::Identity& issuer)
    {
        return store("issuer.pem", testpki::inPem(issuer.certificate.get()));
    }
    /// What is said about a chip that holds these certificates.
    TrustReport examine(const std::vector<const X509*>& held, const TrustOptions& options)
    {
        const Bytes stored = testpki::contained(held);
        return Trust(options).examine(Certificate(stored.data(), stored.size()));
    }
    /// The one failure of a chip that holds these certificates, if the root is trusted.
    std::string causeOf(const std::vector<const X509*>& held)
    {
        const TrustReport report = examine(held, {{storeIssuer(m_root)}, {}, true, {}});
        return report.failure() == nullptr ? "" : report.failure()->cause;
    }
    static const TrustCheck& check(const TrustReport& report, const std::string& name)
    {
        for (const TrustCheck& each : report.checks) {
            if (each.name == name)
                return each;
        }
        throw std::runtime_error("no check " + name);
    }

    const TemporaryDirectory m_folder;
    const testpki::Identity m_root = testpki::makeRoot("Root");
    const testpki::Identity m_chip = testpki::makeIssued(m_root, "Chip");
};

TEST_F(TrustTest, BelievesACertificateOfAGivenIssuer)
{
    const TrustReport report = examine({m_chip.certificate.get()}, {{storeIssuer(m_root)}, {}, true, {}});

    EXPECT_EQ(nullptr, report.failure());
    EXPECT_THAT(report.chain, ElementsAre("CN=Chip", "CN=Root"));
    EXPECT_EQ("vouched for by CN=Root", check(report, "issuer").found);
    EXPECT_EQ(Result::Skipped, check(report, "revocation").result);
    EXPECT_EQ("EC prime256v1, signed with SHA256", check(report, "strength").found);
}

TEST_F(TrustTest, LooksAtEachThingInAFixedOrder)
{
    const TrustReport report = examine({m_chip.certificate.get()}, {{storeIssuer(m_root)}, {}, true, {}});
    std::vector<std::string> names;
    for (const TrustCheck& each : report.checks)
        names.emplace_back(each.name);
    EXPECT_THAT(names, ElementsAre("certificate", "issuer", "validity", "revocation", "strength"));
}

TEST_F(TrustTest, SaysThatTheIssuerWasNotCheckedIfNoneIsGiven)
{
    const TrustReport report = examine({m_chip.certificate.get()}, {});

    EXPECT_EQ(nullptr, report.failure());
    EXPECT_EQ(Result::Skipped, check(report, "issuer").result);
    EXPECT_EQ("not checked: no --issuer given", check(report, "issuer").found);
    EXPECT_EQ(Result::Skipped, check(report, "certificate").result);
    EXPECT_TRUE(report.chain.empty());
}

TEST_F(TrustTest, FollowsAnIntermediateOfTheContainer)
{
    const auto middle = testpki::makeIssued(m_root, "Middle", {true});
    const auto chip = testpki::makeIssued(middle, "Chip");
    const TrustReport report =
        examine({middle.certificate.get(), chip.certificate.get()}, {{storeIssuer(m_root)}, {}, true, {}});

    EXPECT_EQ(nullptr, report.failure());
    EXPECT_THAT(report.chain, ElementsAre("CN=Chip", "CN=Middle", "CN=Root"));
}

TEST_F(TrustTest, BelievesAnIntermediateWithoutItsRoot)
{
    const auto middle = testpki::makeIssued(m_root, "Middle", {true});
    const auto chip = testpki::makeIssued(middle, "Chip");
    EXPECT_EQ(nullptr, examine({chip.certificate.get()}, {{storeIssuer(middle)}, {}, true, {}}).failure());
}

TEST_F(TrustTest, NeverBelievesARootBecauseTheChipHoldsIt)
{
    const auto stranger = testpki::makeRoot("Stranger");
    const auto chip = testpki::makeIssued(stranger, "Chip");
    EXPECT_EQ("unknown issuer", causeOf({chip.certificate.get(), stranger.certificate.get()}));
}

TEST_F(TrustTest, NamesASelfMadeCertificate)
{
    EXPECT_EQ("self-made", causeOf({testpki::makeRoot("Chip", {}).certificate.get()}));
}

TEST_F(TrustTest, NamesAnUnknownIssuer)
{
    const auto stranger = testpki::makeRoot("Stranger");
    EXPECT_EQ("unknown issuer", causeOf({testpki::makeIssued(stranger, "Chip").certificate.get()}));
}

TEST_F(TrustTest, DoesNotJudgeTheSignatureOfAnUnknownIssuer)
{
    const auto stranger = testpki::makeRoot("Stranger");
    const TrustReport report =
        examine({testpki::makeIssued(stranger, "Chip").certificate.get()}, {{storeIssuer(m_root)}, {}, true, {}});
    EXPECT_EQ(Result::Skipped, check(report, "certificate").result);
}

TEST_F(TrustTest, NamesAnIssuerOfTheSameNameWithAnotherKey)
{
    const auto impostor = testpki::makeRoot("Root");
    EXPECT_EQ("altered", causeOf({testpki::makeIssued(impostor, "Chip").certificate.get()}));
}

TEST_F(TrustTest, SaysOfNoIssuerThatItVouchesForACertificateThatAnotherKeyHasSigned)
{
    const auto impostor = testpki::makeRoot("Root");
    const TrustReport report =
        examine({testpki::makeIssued(impostor, "Chip").certificate.get()}, {{storeIssuer(m_root)}, {}, true, {}});
    EXPECT_EQ(Result::Failed, check(report, "certificate").result);
    EXPECT_EQ(Result::Skipped, check(report, "issuer").result);
}

TEST_F(TrustTest, NamesAnAlteredCertificate)
{
    Bytes bytes = testpki::inDer(m_chip.certificate.get());
    bytes.back() ^= 0x01U; // the end of the signature
    const std::uint8_t* position = bytes.data();
    const testpki::Certificate altered(d2i_X509(nullptr, &position, static_cast<long>(bytes.size())));
    ASSERT_NE(nullptr, altered);
    EXPECT_EQ("altered", causeOf({altered.get()}));
}

TEST_F(TrustTest, NamesAnAlteredSelfSignedCertificateWithoutAnyIssuer)
{
    const auto chip = testpki::makeRoot("Chip", {});
    Bytes bytes = testpki::inDer(chip.certificate.get());
    bytes.back() ^= 0x01U; // the end of the signature
    const std::uint8_t* position = bytes.data();
    const testpki::Certificate altered(d2i_X509(nullptr, &position, static_cast<long>(bytes.size())));
    ASSERT_NE(nullptr, altered);
    const TrustReport report = examine({altered.get()}, {});
    ASSERT_NE(nullptr, report.failure());
    EXPECT_STREQ("altered", report.failure()->cause);
}

TEST_F(TrustTest, SeesASelfSignedCertificateMatchItself)
{
    const TrustReport report = examine({testpki::makeRoot("Chip", {}).certificate.get()}, {});
    EXPECT_EQ(nullptr, report.failure());
    EXPECT_EQ("matches its own signature", check(report, "certificate").found);
}

TEST_F(TrustTest, NamesAnExpiredCertificateAlsoWithoutAnyIssuer)
{
    testpki::Wishes wishes;
    wishes.notBefore = -2 * kDay;
    wishes.notAfter = -kDay;
    const auto chip = testpki::makeIssued(m_root, "Chip", wishes);
    EXPECT_EQ("expired", causeOf({chip.certificate.get()}));
    const TrustReport report = examine({chip.certificate.get()}, {});
    ASSERT_NE(nullptr, report.failure());
    EXPECT_STREQ("expired", report.failure()->cause);
}

TEST_F(TrustTest, NamesACertificateThatIsNotYetValid)
{
    testpki::Wishes wishes;
    wishes.notBefore = kDay;
    wishes.notAfter = 2 * kDay;
    EXPECT_EQ("not yet valid", causeOf({testpki::makeIssued(m_root, "Chip", wishes).certificate.get()}));
}

TEST_F(TrustTest, BlamesTheClockForDatesThatFailWhereItCannotBeRight)
{
    TrustOptions options;
    options.clock = [](std::time_t*) { return std::time_t{12}; };
    const TrustReport report = examine({m_chip.certificate.get()}, options);
    EXPECT_TRUE(report.isClockWrong);
    EXPECT_EQ("CN=Chip is not valid yet; this board's clock says 1970-01-01T00:00:12Z, which cannot be",
              check(report, "validity").found);
    options.at = std::time_t{12}; // which somebody has chosen
    EXPECT_FALSE(examine({m_chip.certificate.get()}, options).isClockWrong);
    options.at.reset();
    options.checksTime = false;
    EXPECT_EQ(Result::Skipped, check(examine({m_chip.certificate.get()}, options), "validity").result);
    EXPECT_EQ(nullptr, examine({m_chip.certificate.get()}, options).failure());
}

TEST_F(TrustTest, SaysWhatTheClockSaysWhereTheDatesDoNotFit)
{
    constexpr std::time_t kInTheFarFuture = 2145916800; // beyond these certificates, not beyond 32 bits
    TrustOptions options;
    options.clock = [](std::time_t*) { return kInTheFarFuture; };
    EXPECT_EQ("CN=Chip has expired; this board's clock says 2038-01-01T00:00:00Z",
              check(examine({m_chip.certificate.get()}, options), "validity").found);
    options.at = kInTheFarFuture; // which somebody has chosen
    EXPECT_EQ("CN=Chip has expired", check(examine({m_chip.certificate.get()}, options), "validity").found);
}

TEST_F(TrustTest, NamesAFewOfManyIssuers)
{
    std::string bundle;
    for (const char* name : {"A", "B", "C", "D", "E", "F"})
        bundle += testpki::inPem(testpki::makeRoot(name).certificate.get());
    const TrustReport report = examine({m_chip.certificate.get()}, {{store("bundle.pem", bundle)}, {}, true, {}});
    EXPECT_EQ("CN=Chip comes from none of the given issuers (CN=A; CN=B; CN=C; CN=D and 2 more): its issuer is CN=Root",
              check(report, "issuer").found);
}

TEST_F(TrustTest, NamesTheIssuerThatItLooksFor)
{
    const auto stranger = testpki::makeRoot("Stranger");
    const TrustReport report =
        examine({testpki::makeIssued(stranger, "Chip").certificate.get()}, {{storeIssuer(m_root)}, {}, true, {}});
    EXPECT_EQ("CN=Chip comes from none of the given issuers (CN=Root): its issuer is CN=Stranger",
              check(report, "issuer").found);
}

TEST_F(TrustTest, ChecksTheDatesAtAGivenTime)
{
    testpki::Wishes wishes;
    wishes.notBefore = -2 * kDay;
    wishes.notAfter = -kDay;
    testpki::Wishes rootWishes;
    rootWishes.isCa = true;
    rootWishes.notBefore = -3 * kDay;
    const auto root = testpki::makeRoot("Old root", rootWishes);
    const auto chip = testpki::makeIssued(root, "Chip", wishes);
    TrustOptions options{{storeIssuer(root)}, {}, true, std::time(nullptr) - kDay - kDay / 2};
    EXPECT_EQ(nullptr, examine({chip.certificate.get()}, options).failure());
    options.at = std::time(nullptr);
    EXPECT_NE(nullptr, examine({chip.certificate.get()}, options).failure());
}

TEST_F(TrustTest, LeavesTheDatesAloneIfAskedTo)
{
    testpki::Wishes wishes;
    wishes.notAfter = -60;
    const auto chip = testpki::makeIssued(m_root, "Chip", wishes);
    const TrustReport report = examine({chip.certificate.get()}, {{storeIssuer(m_root)}, {}, false, {}});
    EXPECT_EQ(nullptr, report.failure());
    EXPECT_EQ("not checked: --no-time-check", check(report, "validity").found);
}

TEST_F(TrustTest, NamesARevokedCertificate)
{
    const std::string list = store("list.pem", testpki::revocationList(m_root, {m_chip.certificate.get()}));
    const TrustReport report = examine({m_chip.certificate.get()}, {{storeIssuer(m_root)}, {list}, true, {}});
    ASSERT_NE(nullptr, report.failure());
    EXPECT_STREQ("revoked", report.failure()->cause);
    EXPECT_STREQ("revocation", report.failure()->name);
}

TEST_F(TrustTest, BelievesACertificateThatTheListDoesNotName)
{
    const auto other = testpki::makeIssued(m_root, "Other");
    const std::string list = store("list.pem", testpki::revocationList(m_root, {other.certificate.get()}));
    const TrustReport report = examine({m_chip.certificate.get()}, {{storeIssuer(m_root)}, {list}, true, {}});
    EXPECT_EQ(nullptr, report.failure());
    EXPECT_EQ("not revoked", check(report, "revocation").found);
}

TEST_F(TrustTest, NamesAListThatHasExpired)
{
    const std::string list = store("list.pem", testpki::revocationList(m_root, {}, -3600));
    const TrustReport report = examine({m_chip.certificate.get()}, {{storeIssuer(m_root)}, {list}, true, {}});
    ASSERT_NE(nullptr, report.failure());
    EXPECT_STREQ("list expired", report.failure()->cause);
}

TEST_F(TrustTest, AdvisesToLookAtTheClockForAListThatIsNotYetValid)
{
    TrustOptions options{{storeIssuer(m_root)}, {store("list.pem", testpki::revocationList(m_root, {}))}, true, {}};
    options.clock = [](std::time_t*) { return std::time_t{12}; };
    const TrustReport report = examine({m_chip.certificate.get()}, options);
    EXPECT_STREQ("list not yet valid", check(report, "revocation").cause);
    EXPECT_EQ(0U, std::string(check(report, "revocation").next).find("If this board's clock is wrong, set it"));
}

TEST_F(TrustTest, NamesAMissingListOfTheIssuer)
{
    const auto other = testpki::makeRoot("Other root");
    const std::string list = store("list.pem", testpki::revocationList(other, {}));
    const TrustReport report = examine({m_chip.certificate.get()}, {{storeIssuer(m_root)}, {list}, true, {}});
    ASSERT_NE(nullptr, report.failure());
    EXPECT_STREQ("no revocation list", report.failure()->cause);
    EXPECT_EQ("CN=Chip has the issuer CN=Root, of which no list is given: the lists are of CN=Other root",
              report.failure()->found);
}

TEST_F(TrustTest, NamesAnIssuerThatIsNoCa)
{
    const auto notCa = testpki::makeIssued(m_root, "Another chip");
    const auto chip = testpki::makeIssued(notCa, "Chip");
    EXPECT_EQ("issuer is no CA", causeOf({notCa.certificate.get(), chip.certificate.get()}));
}

TEST_F(TrustTest, NamesAChainThatItsIssuerForbids)
{
    testpki::Wishes wishes{true};
    wishes.pathLength = 0;
    const auto first = testpki::makeIssued(m_root, "First", wishes);
    const auto second = testpki::makeIssued(first, "Second", {true});
    const auto chip = testpki::makeIssued(second, "Chip");
    EXPECT_EQ("chain too long", causeOf({first.certificate.get(), second.certificate.get(), chip.certificate.get()}));
}

TEST_F(TrustTest, NamesAChainOfMoreThanFiveIssuers)
{
    std::vector<testpki::Identity> issuers;
    issuers.push_back(testpki::makeIssued(m_root, "Issuer 0", {true}));
    for (int i = 1; i < 6; ++i)
        issuers.push_back(testpki::makeIssued(issuers.back(), "Issuer " + std::to_string(i), {true}));
    const auto fits = testpki::makeIssued(issuers[4], "Chip");
    const auto tooLong = testpki::makeIssued(issuers[5], "Chip");
    std::vector<const X509*> held;
    held.reserve(issuers.size());
    for (const auto& each : issuers)
        held.push_back(each.certificate.get());
    const std::vector<const X509*> five(held.begin(), held.begin() + 5);

    auto good = five;
    good.push_back(fits.certificate.get());
    EXPECT_EQ("", causeOf(good));
    auto bad = held;
    bad.push_back(tooLong.certificate.get());
    EXPECT_EQ("chain too long", causeOf(bad));
}

TEST_F(TrustTest, NamesACriticalExtensionThatNobodyKnows)
{
    testpki::Wishes wishes;
    wishes.criticalExtension = "1.2.3.4.5";
    EXPECT_EQ("unknown extension", causeOf({testpki::makeIssued(m_root, "Chip", wishes).certificate.get()}));
}

TEST_F(TrustTest, AcceptsRsa1024AndSaysSo)
{
    testpki::Wishes wishes;
    wishes.keyType = "RSA";
    wishes.rsaBits = 1024;
    const TrustReport report =
        examine({testpki::makeIssued(m_root, "Chip", wishes).certificate.get()}, {{storeIssuer(m_root)}, {}, true, {}});
    EXPECT_EQ(nullptr, report.failure());
    EXPECT_EQ("CN=Chip has RSA 1024 bits, signed with SHA256: accepted, but below RSA-2048 and SHA-256",
              check(report, "strength").found);
}

TEST_F(TrustTest, AcceptsSha1AndSaysSo)
{
    testpki::Wishes wishes;
    wishes.digest = "SHA1";
    const TrustReport report =
        examine({testpki::makeIssued(m_root, "Chip", wishes).certificate.get()}, {{storeIssuer(m_root)}, {}, true, {}});
    EXPECT_EQ(nullptr, report.failure());
    EXPECT_THAT(check(report, "strength").found, HasSubstr("accepted, but below"));
}

TEST_F(TrustTest, RefusesAShorterRsaKey)
{
    testpki::Wishes wishes;
    wishes.keyType = "RSA";
    wishes.rsaBits = 768;
    EXPECT_EQ("too weak", causeOf({testpki::makeIssued(m_root, "Chip", wishes).certificate.get()}));
}

TEST_F(TrustTest, RefusesMd5)
{
    testpki::Wishes wishes;
    wishes.digest = "MD5";
    testpki::Wishes rootWishes{true};
    rootWishes.keyType = "RSA";
    const auto root = testpki::makeRoot("RSA root", rootWishes);
    const auto chip = testpki::makeIssued(root, "Chip", wishes);
    const TrustReport report = examine({chip.certificate.get()}, {{storeIssuer(root)}, {}, true, {}});
    ASSERT_NE(nullptr, report.failure());
    EXPECT_STREQ("too weak", report.failure()->cause);
}

TEST_F(TrustTest, RefusesAWeakIssuerAboveAStrongCertificate)
{
    testpki::Wishes wishes{true};
    wishes.keyType = "RSA";
    wishes.rsaBits = 768;
    const auto root = testpki::makeRoot("Weak root", wishes);
    const auto chip = testpki::makeIssued(root, "Chip");
    const TrustReport report = examine({chip.certificate.get()}, {{storeIssuer(root)}, {}, true, {}});
    ASSERT_NE(nullptr, report.failure());
    EXPECT_STREQ("too weak", report.failure()->cause);
    EXPECT_THAT(report.failure()->found, HasSubstr("CN=Weak root has RSA 768 bits"));
}

TEST_F(TrustTest, ReadsDerBundlesAndFolders)
{
    const auto other = testpki::makeRoot("Other");
    const Bytes der = testpki::inDer(m_root.certificate.get());
    const std::string derFile = store("root.der", {der.begin(), der.end()});
    const std::string bundle =
        store("bundle.pem", testpki::inPem(other.certificate.get()) + testpki::inPem(m_root.certificate.get()));
    std::filesystem::create_directory(m_folder.path() + "/folder");
    store("folder/root.der", {der.begin(), der.end()});
    store("folder/notes.txt", "no certificate\n");
    for (const std::string& path : {derFile, bundle, m_folder.path() + "/folder"})
        EXPECT_EQ(nullptr, examine({m_chip.certificate.get()}, {{path}, {}, true, {}}).failure()) << path;
}

TEST_F(TrustTest, RefusesFilesWithoutACertificateAListOrAtAll)
{
    const std::string empty = store("empty", "");
    std::filesystem::create_directory(m_folder.path() + "/folder");
    for (const std::string& path : {empty, m_folder.path() + "/missing", m_folder.path() + "/folder"}) {
        EXPECT_THROW(Trust({{path}, {}, true, {}}), Failure) << path;
        EXPECT_THROW(Trust({{}, {path}, true, {}}), Failure) << path;
    }
}

TEST_F(TrustTest, EscapesWhatAnIssuersNameWouldDoToATerminal)
{
    const auto root = testpki::makeRoot("\x1b]0;owned\x07");
    const auto chip = testpki::makeIssued(root, "Chip");
    const TrustReport report = examine({chip.certificate.get()}, {{storeIssuer(root)}, {}, true, {}});
    EXPECT_EQ(std::string::npos, report.chain.back().find('\x1b'));
    EXPECT_EQ(std::string::npos, check(report, "issuer").found.find('\x1b'));
}

} // namespace
