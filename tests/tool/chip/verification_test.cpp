#include "tool/chip/verification.h"

#include <gtest/gtest.h>
#include <openssl/ec.h>

#include "tests/tool/chip/credentials.h"

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

struct Keys
{
    const Generation* generation;
    const char* key;
    const char* keyOfTheOther;
};

void PrintTo(const Keys& keys, std::ostream* out)
{
    *out << keys.generation->protocol;
}

/// What is found; empty if there is no flaw.
std::string found(const Generation& generation, EVP_PKEY* key, const Bytes& challenge, const Bytes& signature)
{
    const auto flaw = findFlaw(generation, key, challenge, signature);
    return flaw ? flaw->found : "";
}

class VerificationTest : public testing::TestWithParam<Keys>
{
protected:
    std::string flawOf(const Bytes& challenge, const Bytes& signature)
    {
        return found(m_generation, m_key.get(), challenge, signature);
    }

    const Generation& m_generation = *GetParam().generation;
    const KeyPointer m_key = readTestKey(GetParam().key);
    const Bytes m_challenge = Bytes(m_generation.challengeLength, 0x5a);
    const Bytes m_signature = signAs(m_generation, m_key.get(), m_challenge);
};

const char kOutOfRange[] = "the signature is no signature of any key: a number in it is out of range";
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
    EXPECT_EQ(kOutOfRange, flawOf(m_challenge, Bytes(m_generation.responseLength, 0x00)));
    EXPECT_EQ(kOutOfRange, flawOf(m_challenge, Bytes(m_generation.responseLength, 0xff)));
}

TEST_P(VerificationTest, CallsAnRsaSignatureAboveTheModulusOneThatAnotherKeyMayHaveMade)
{
    Bytes large(m_generation.responseLength, 0xff);
    large.back() = 0xfe;
    EXPECT_EQ(m_generation.keyGroup == nullptr ? kMismatch : kOutOfRange, flawOf(m_challenge, large));
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
    EXPECT_NE(std::string::npos, found(m_generation, other.get(), m_challenge, m_signature).find("not of the kind"));
}

TEST_P(VerificationTest, FindsAKeyThatCannotBeUsed)
{
    EXPECT_NE(std::string::npos, found(m_generation, nullptr, m_challenge, m_signature).find("not of the kind"));
}

INSTANTIATE_TEST_SUITE_P(Generations, VerificationTest,
                         testing::Values(Keys{&kGeneration20B, "chip20b.key", "chip30.key"},
                                         Keys{&kGeneration30, "chip30.key", "chip20b.key"}),
                         [](const auto& keys) {
                             return keys.param.generation == &kGeneration20B ? "Protocol20B" : "Protocol30";
                         });

TEST(VerificationCurveTest, FindsAKeyOnAnotherCurve)
{
    const KeyPointer key(EVP_EC_gen("secp384r1"));
    EXPECT_NE(std::string::npos, found(kGeneration30, key.get(), Bytes(32), Bytes(64)).find("not of the kind"));
}

} // namespace
