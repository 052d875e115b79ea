#include "tool/chip/verification.h"

#include <gtest/gtest.h>
#include <openssl/ec.h>

#include "tests/tool/chip/credentials.h"

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

struct Generation
{
    const SignatureScheme* scheme;
    const char* key;
    const char* keyOfTheOther;
};

void PrintTo(const Generation& generation, std::ostream* out)
{
    *out << generation.scheme->protocol;
}

class VerificationTest : public testing::TestWithParam<Generation>
{
protected:
    std::string flawOf(const Bytes& challenge, const Bytes& signature)
    {
        return findFlaw(m_scheme, m_key.get(), challenge, signature);
    }

    const SignatureScheme& m_scheme = *GetParam().scheme;
    const KeyPointer m_key = readTestKey(GetParam().key);
    const Bytes m_challenge = Bytes(m_scheme.challengeLength, 0x5a);
    const Bytes m_signature = signAs(m_scheme, m_key.get(), m_challenge);
};

const char kMismatch[] = "the signature does not match the challenge and the certificate's key";

TEST_P(VerificationTest, FindsNothingInAGoodSignature)
{
    EXPECT_EQ("", flawOf(m_challenge, m_signature));
}

TEST_P(VerificationTest, FindsEveryChangedByteOfTheSignature)
{
    for (std::size_t at = 0; at < m_signature.size(); ++at) {
        auto changed = m_signature;
        changed[at] ^= 1U;
        EXPECT_EQ(kMismatch, flawOf(m_challenge, changed)) << "byte " << at;
    }
}

TEST_P(VerificationTest, FindsEveryChangedByteOfTheChallenge)
{
    for (std::size_t at = 0; at < m_challenge.size(); ++at) {
        auto changed = m_challenge;
        changed[at] ^= 0x80U;
        EXPECT_EQ(kMismatch, flawOf(changed, m_signature)) << "byte " << at;
    }
}

TEST_P(VerificationTest, FindsASignatureOfZerosOrOnes)
{
    EXPECT_EQ(kMismatch, flawOf(m_challenge, Bytes(m_scheme.signatureLength, 0x00)));
    EXPECT_EQ(kMismatch, flawOf(m_challenge, Bytes(m_scheme.signatureLength, 0xff)));
}

TEST_P(VerificationTest, FindsAWrongLengthOfTheSignature)
{
    auto longer = m_signature;
    longer.push_back(0);
    EXPECT_EQ("the signature has " + std::to_string(longer.size()) + " bytes instead of " +
                  std::to_string(m_signature.size()),
              flawOf(m_challenge, longer));
    EXPECT_NE("", flawOf(m_challenge, {}));
}

TEST_P(VerificationTest, FindsAWrongLengthOfTheChallenge)
{
    EXPECT_EQ("the challenge has 1 bytes instead of " + std::to_string(m_challenge.size()), flawOf({0}, m_signature));
}

TEST_P(VerificationTest, FindsAKeyOfTheOtherKind)
{
    const auto other = readTestKey(GetParam().keyOfTheOther);
    EXPECT_NE(std::string::npos, findFlaw(m_scheme, other.get(), m_challenge, m_signature).find("not of the kind"));
}

TEST_P(VerificationTest, FindsAKeyThatCannotBeUsed)
{
    EXPECT_NE(std::string::npos, findFlaw(m_scheme, nullptr, m_challenge, m_signature).find("not of the kind"));
}

INSTANTIATE_TEST_SUITE_P(Generations, VerificationTest,
                         testing::Values(Generation{&kScheme20B, "chip20b.key", "chip30.key"},
                                         Generation{&kScheme30, "chip30.key", "chip20b.key"}),
                         [](const auto& generation) {
                             return generation.param.scheme == &kScheme20B ? "Protocol20B" : "Protocol30";
                         });

TEST(VerificationCurveTest, FindsAKeyOnAnotherCurve)
{
    const KeyPointer key(EVP_EC_gen("secp384r1"));
    EXPECT_NE(std::string::npos, findFlaw(kScheme30, key.get(), Bytes(32), Bytes(64)).find("not of the kind"));
}

} // namespace
