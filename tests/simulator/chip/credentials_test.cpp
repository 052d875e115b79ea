#include "simulator/chip/credentials.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include "tests/simulator/chip/signaturecheck.h"
#include "tests/simulator/chip/testcredentials.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
namespace fs = std::filesystem;

namespace {

class EachCredentials : public testing::TestWithParam<const Generation*>
{
protected:
    const Generation& generation() const { return *GetParam(); }
    Bytes challenge() const { return Bytes(generation().challengeLength, 0x5c); }
};

std::string nameOf(const testing::TestParamInfo<const Generation*>& generation)
{
    return generation.param == &kGeneration20B ? "Protocol20B" : "Protocol30";
}
INSTANTIATE_TEST_SUITE_P(Generations, EachCredentials, testing::Values(&kGeneration20B, &kGeneration30), nameOf);

/// The first certificate in a container.
Certificate certificateIn(const Bytes& container)
{
    const unsigned char* position = container.data();
    const std::unique_ptr<PKCS7, decltype(&PKCS7_free)> parsed(
        d2i_PKCS7(nullptr, &position, static_cast<long>(container.size())), &PKCS7_free);
    X509* certificate = sk_X509_value(parsed->d.sign->cert, 0);
    X509_up_ref(certificate);
    return {certificate, X509_free};
}

TEST_P(EachCredentials, SignsTheChallengeSoThatThePublicKeyVerifiesIt)
{
    const Bytes response = testCredentials(generation())->sign(challenge());

    EXPECT_EQ(generation().responseLength, response.size());
    EXPECT_TRUE(isAuthentic(testCredentials(generation())->certificate(), challenge(), response));
}

TEST_P(EachCredentials, SignsSoThatAnyChangedByteIsNoticed)
{
    const Bytes response = testCredentials(generation())->sign(challenge());
    for (std::size_t i = 0; i < response.size(); ++i) {
        Bytes changed = response;
        changed[i] ^= 1U;
        EXPECT_FALSE(isAuthentic(testCredentials(generation())->certificate(), challenge(), changed)) << i;
    }
    Bytes otherChallenge = challenge();
    otherChallenge.back() ^= 1U;
    EXPECT_FALSE(isAuthentic(testCredentials(generation())->certificate(), otherChallenge, response));
}

TEST_P(EachCredentials, SignsManyChallengesInTheSameLength)
{
    // The numbers of an ECDSA signature are now and then shorter than the curve's, and are padded then.
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(generation().responseLength, testCredentials(generation())->sign(challenge()).size());
}

TEST_P(EachCredentials, DoesNotSignAChallengeOfAnotherLength)
{
    EXPECT_THROW(testCredentials(generation())->sign(Bytes(generation().challengeLength - 1)), CredentialsError);
}

TEST_P(EachCredentials, HoldsOneCertificateInADerContainer)
{
    EXPECT_EQ(1, certificateCount(testCredentials(generation())->certificate()));
}

TEST_P(EachCredentials, MakesAContainerOfExactlyTheLengthAsked)
{
    for (const std::size_t length : {700U, 767U, 768U, 907U, 1023U, 1024U, 1280U}) {
        const Credentials credentials = Credentials::generate(generation(), length);

        EXPECT_EQ(length, credentials.certificate().size());
        EXPECT_TRUE(isAuthentic(credentials.certificate(), challenge(), credentials.sign(challenge())));
    }
}

TEST_P(EachCredentials, MakesAContainerOfEveryLength)
{
    const Key key = newKey(generation());
    const std::size_t shortest = Credentials::issue(generation(), key, nullptr).certificate().size();
    for (std::size_t length = shortest + 40; length <= 1280; ++length)
        ASSERT_EQ(length, Credentials::issue(generation(), key, nullptr, length).certificate().size());
}

TEST_P(EachCredentials, HoldsACertificateThatIsAsLongEachTime)
{
    const Key key = newKey(generation());
    const std::size_t length = Credentials::issue(generation(), key, nullptr).certificate().size();
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(length, Credentials::issue(generation(), key, nullptr).certificate().size());
}

TEST_P(EachCredentials, HoldsACertificateOfTheIssuerThatIsGiven)
{
    const Key issuersKey = newEcKey("P-256");
    const Issuer issuer = {issuersKey, makeSelfSigned(issuersKey, {})};
    const Credentials credentials = Credentials::issue(generation(), newKey(generation()), &issuer);
    EXPECT_TRUE(isAuthentic(credentials.certificate(), challenge(), credentials.sign(challenge())));
    EXPECT_EQ(1, X509_verify(certificateIn(credentials.certificate()).get(), issuersKey.get()));
}

TEST_P(EachCredentials, RefusesAContainerLengthThatIsTooShort)
{
    EXPECT_THROW(Credentials::generate(generation(), 100), CredentialsError);
}

/// Files with a key and its certificate in every form.
class CredentialFiles : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string name = (fs::temp_directory_path() / "credentials.XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(name.data()));
        m_folder = name;
        m_key.reset(EVP_EC_gen("P-256"));
        m_certificate.reset(X509_new());
        X509_set_pubkey(m_certificate.get(), m_key.get());
        X509_gmtime_adj(X509_getm_notBefore(m_certificate.get()), 0);
        X509_gmtime_adj(X509_getm_notAfter(m_certificate.get()), 1000);
        X509_sign(m_certificate.get(), m_key.get(), EVP_sha256());
        m_container.reset(PKCS7_new());
        PKCS7_set_type(m_container.get(), NID_pkcs7_signed);
        PKCS7_content_new(m_container.get(), NID_pkcs7_data);
        PKCS7_add_certificate(m_container.get(), m_certificate.get());
    }
    void TearDown() override { fs::remove_all(m_folder); }

    template<typename Write>
    std::string file(const std::string& name, Write write)
    {
        std::string path = m_folder / name;
        const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_file(path.c_str(), "wb"), &BIO_free);
        EXPECT_EQ(1, write(bio.get()));
        return path;
    }

    std::string pemKey()
    {
        return file("key.pem", [&](BIO* bio) {
            return PEM_write_bio_PrivateKey(bio, m_key.get(), nullptr, nullptr, 0, nullptr, nullptr);
        });
    }
    std::string derKey()
    {
        return file("key.der", [&](BIO* bio) { return i2d_PrivateKey_bio(bio, m_key.get()); });
    }
    std::string derContainer()
    {
        return file("certificate.p7b", [&](BIO* bio) { return i2d_PKCS7_bio(bio, m_container.get()); });
    }

    void expectAuthentic(const Credentials& credentials)
    {
        const Bytes challenge(32, 1);
        EXPECT_EQ(1, certificateCount(credentials.certificate()));
        EXPECT_TRUE(isAuthentic(credentials.certificate(), challenge, credentials.sign(challenge)));
    }

    /// The error of load() for the files; empty if there is none.
    static std::string complaint(const Generation& generation, const std::string& key, const std::string& certificate)
    {
        try {
            Credentials::load(generation, key, certificate);
        } catch (const CredentialsError& error) {
            return error.what();
        }
        return "";
    }

    fs::path m_folder;
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> m_key{nullptr, &EVP_PKEY_free};
    std::unique_ptr<X509, decltype(&X509_free)> m_certificate{nullptr, &X509_free};
    std::unique_ptr<PKCS7, decltype(&PKCS7_free)> m_container{nullptr, &PKCS7_free};
};

TEST_F(CredentialFiles, AreReadWithTheKeyInPem)
{
    expectAuthentic(Credentials::load(kGeneration30, pemKey(), derContainer()));
}

TEST_F(CredentialFiles, AreReadWithTheKeyInDer)
{
    expectAuthentic(Credentials::load(kGeneration30, derKey(), derContainer()));
}

TEST_F(CredentialFiles, AreReadWithTheContainerInPem)
{
    const auto path = file("p7.pem", [&](BIO* bio) { return PEM_write_bio_PKCS7(bio, m_container.get()); });
    expectAuthentic(Credentials::load(kGeneration30, pemKey(), path));
}

TEST_F(CredentialFiles, AreReadWithABareCertificateInPem)
{
    const auto path = file("x509.pem", [&](BIO* bio) { return PEM_write_bio_X509(bio, m_certificate.get()); });
    expectAuthentic(Credentials::load(kGeneration30, pemKey(), path));
}

TEST_F(CredentialFiles, AreReadWithABareCertificateInDer)
{
    const auto path = file("x509.der", [&](BIO* bio) { return i2d_X509_bio(bio, m_certificate.get()); });
    expectAuthentic(Credentials::load(kGeneration30, pemKey(), path));
}

TEST_F(CredentialFiles, AreKeptAsTheyAreWhenTheCertificateIsInADerContainer)
{
    const std::string path = derContainer();
    std::ifstream stream(path, std::ios::binary);
    const Bytes content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};

    EXPECT_EQ(content, Credentials::load(kGeneration30, pemKey(), path).certificate());
}

TEST_F(CredentialFiles, GetASelfSignedCertificateWhenTheyHaveNone)
{
    const Credentials credentials = Credentials::load(kGeneration30, pemKey(), "", 907);

    EXPECT_EQ(907U, credentials.certificate().size());
    expectAuthentic(credentials);
}

TEST_F(CredentialFiles, AreRefusedWhenTheKeyIsOfTheOtherGeneration)
{
    EXPECT_NE(std::string::npos, complaint(kGeneration20B, pemKey(), "").find("RSA-1024"));

    m_key.reset(EVP_RSA_gen(1024U));
    EXPECT_EQ("", complaint(kGeneration20B, pemKey(), ""));
    EXPECT_NE(std::string::npos, complaint(kGeneration30, pemKey(), "").find("P-256"));
}

TEST_F(CredentialFiles, AreRefusedWhenTheKeyHasAnotherSizeOrCurve)
{
    m_key.reset(EVP_RSA_gen(2048U));
    EXPECT_NE("", complaint(kGeneration20B, pemKey(), ""));
    m_key.reset(EVP_EC_gen("P-384"));
    EXPECT_NE("", complaint(kGeneration30, pemKey(), ""));
}

TEST_F(CredentialFiles, AreRefusedWhenTheCertificateIsOfAnotherKey)
{
    const std::string container = derContainer();
    const auto bare = file("x509.der", [&](BIO* bio) { return i2d_X509_bio(bio, m_certificate.get()); });
    m_key.reset(EVP_EC_gen("P-256"));

    EXPECT_NE("", complaint(kGeneration30, pemKey(), container));
    EXPECT_NE("", complaint(kGeneration30, pemKey(), bare));
}

TEST_F(CredentialFiles, AreRefusedWithTheNameOfTheFileThatIsMissingOrEmptyOrSomethingElse)
{
    const std::string missing = m_folder / "missing";
    const std::string empty = file("empty", [](BIO*) { return 1; });
    const std::string text = file("text", [](BIO* bio) { return BIO_puts(bio, "hello") == 5 ? 1 : 0; });

    for (const std::string& path : {missing, empty, text, m_folder.string()}) {
        EXPECT_NE(std::string::npos, complaint(kGeneration30, path, "").find(path));
        EXPECT_NE(std::string::npos, complaint(kGeneration30, pemKey(), path).find(path));
    }
}

TEST_F(CredentialFiles, AreRefusedWithoutAskingWhenAPasswordProtectsTheKey)
{
    const auto path = file("locked.pem", [&](BIO* bio) {
        return PEM_write_bio_PrivateKey(bio, m_key.get(), EVP_aes_128_cbc(), nullptr, 0, nullptr,
                                        const_cast<char*>("secret"));
    });

    EXPECT_NE(std::string::npos, complaint(kGeneration30, path, "").find("password"));
}

TEST_F(CredentialFiles, AreRefusedWhenTheIssuersKeyIsAnother)
{
    const auto certificate = file("x509.pem", [&](BIO* bio) { return PEM_write_bio_X509(bio, m_certificate.get()); });
    EXPECT_EQ(1, X509_check_private_key(readIssuer(certificate, pemKey()).certificate.get(), m_key.get()));
    m_key.reset(EVP_EC_gen("P-256"));
    EXPECT_THROW(readIssuer(certificate, pemKey()), CredentialsError);
}

} // namespace
