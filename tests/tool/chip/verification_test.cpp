#include "tool/chip/verification.h"

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

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

/// Of a signature of a challenge of zeros; null if there is no flaw.
const char* causeOf(const Generation& generation, EVP_PKEY* key, const Bytes& signature)
{
    const auto flaw = findFlaw(generation, key, Bytes(generation.challengeLength), signature);
    return flaw ? flaw->cause : nullptr;
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
const char kAnotherChallenge[] = "the signature is of the certificate's key, but over another challenge";

/// RSA shows its public key what was signed; ECDSA does not.
std::string mismatchOf(const Generation& generation)
{
    return generation.keyGroup == nullptr
               ? "the signature is not of the certificate's key"
               : "the signature is of another key than the certificate's, or over another challenge";
}

TEST_P(VerificationTest, FindsNothingInAGoodSignature)
{
    EXPECT_EQ("", flawOf(m_challenge, m_signature));
}

TEST_P(VerificationTest, FindsEveryChangedByteOfTheSignature)
{
    for (std::size_t at = 0; at < m_signature.size(); ++at) {
        auto changed = m_signature;
        changed[at] ^= 1U;
        EXPECT_EQ(mismatchOf(m_generation), flawOf(m_challenge, changed)) << "byte " << at;
    }
}

TEST_P(VerificationTest, FindsEveryChangedByteOfTheChallenge)
{
    for (std::size_t at = 0; at < m_challenge.size(); ++at) {
        auto changed = m_challenge;
        changed[at] ^= 0x80U;
        EXPECT_EQ(m_generation.keyGroup == nullptr ? kAnotherChallenge : mismatchOf(m_generation),
                  flawOf(changed, m_signature))
            << "byte " << at;
    }
}

class SecondSignatureTest : public VerificationTest
{
protected:
    /// Of a first signature that does not match, and a second one.
    std::string causeOf(const Bytes& firstSignature, const Bytes& secondSignature)
    {
        const auto first = findFlaw(m_generation, m_key.get(), m_challenge, firstSignature);
        EXPECT_TRUE(first && mayBeToldApart(*first));
        const SignedChallenge second = {m_secondChallenge, secondSignature};
        return tellApart(m_generation, m_key.get(), *first, firstSignature, second).cause;
    }

    const Bytes m_secondChallenge = Bytes(m_generation.challengeLength, 0xa5);
    const Bytes m_elsewhere = signAs(m_generation, m_key.get(), Bytes(m_generation.challengeLength, 0x11));
};

TEST_P(SecondSignatureTest, ThatIsTheFirstOneShowsARecording)
{
    EXPECT_EQ("recorded signature", causeOf(m_elsewhere, m_elsewhere));
}

TEST_P(SecondSignatureTest, ThatMatchesShowsThatBitsChangedInTheFirst)
{
    auto changed = m_signature;
    changed.back() ^= 1U;
    EXPECT_EQ("bit errors", causeOf(changed, signAs(m_generation, m_key.get(), m_secondChallenge)));
}

TEST_P(SecondSignatureTest, ThatDoesNotMatchEitherTellsNoMoreThanTheFirst)
{
    const auto other = signAs(m_generation, m_key.get(), Bytes(m_generation.challengeLength, 0x22));
    EXPECT_EQ(m_generation.keyGroup == nullptr ? "another challenge" : "wrong signature", causeOf(m_elsewhere, other));
}

TEST_P(SecondSignatureTest, IsNotAskedForWhereTheFirstTellsAll)
{
    const auto flaw = findFlaw(m_generation, m_key.get(), m_challenge, Bytes(m_generation.responseLength, 0x00));
    ASSERT_TRUE(flaw);
    EXPECT_FALSE(mayBeToldApart(*flaw));
}

TEST_P(SecondSignatureTest, ThatMatchesAfterTheContentOfAnotherRegisterShowsAnotherProgram)
{
    Bytes registers(m_generation.responseLength, 0xff);
    registers[0] = 7;
    EXPECT_TRUE(mayBeAnotherRegister(registers));
    const auto first = findFlaw(m_generation, m_key.get(), m_challenge, registers);
    ASSERT_TRUE(first);
    const Bytes good = signAs(m_generation, m_key.get(), m_secondChallenge);
    EXPECT_STREQ("bus shared",
                 tellApart(m_generation, m_key.get(), *first, registers, {m_secondChallenge, good}).cause);
    EXPECT_FALSE(mayBeAnotherRegister(good));
}

TEST_P(SecondSignatureTest, ThatIsOutOfRangeAsTheFirstIsNotCalledRecorded)
{
    const bool mayBeOfSomeKey = m_generation.keyGroup == nullptr; // any RSA number but that of all ones
    Bytes registers(m_generation.responseLength, 0xff);
    registers[0] = 7;
    const auto first = findFlaw(m_generation, m_key.get(), m_challenge, registers);
    ASSERT_TRUE(first);
    EXPECT_STREQ(mayBeOfSomeKey ? "recorded signature" : "signature out of range",
                 tellApart(m_generation, m_key.get(), *first, registers, {m_secondChallenge, registers}).cause);
}

TEST(AnotherRegisterTest, ShowsInEightEqualBytesAmongOthers)
{
    EXPECT_FALSE(mayBeAnotherRegister(Bytes(64, 0x00)));
    EXPECT_FALSE(mayBeAnotherRegister({1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 4}));
    EXPECT_TRUE(mayBeAnotherRegister({1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 4}));
    EXPECT_TRUE(mayBeAnotherRegister({0, 0, 0, 0, 0, 0, 0, 0, 4}));
    EXPECT_FALSE(mayBeAnotherRegister({}));
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
    EXPECT_EQ(m_generation.keyGroup == nullptr ? mismatchOf(m_generation) : kOutOfRange, flawOf(m_challenge, large));
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

const auto kBothGenerations = testing::Values(Keys{&kGeneration20B, "chip20b.key", "chip30.key"},
                                              Keys{&kGeneration30, "chip30.key", "chip20b.key"});

std::string protocolOf(const testing::TestParamInfo<Keys>& keys)
{
    return keys.param.generation == &kGeneration20B ? "Protocol20B" : "Protocol30";
}

INSTANTIATE_TEST_SUITE_P(Generations, VerificationTest, kBothGenerations, protocolOf);
INSTANTIATE_TEST_SUITE_P(Generations, SecondSignatureTest, kBothGenerations, protocolOf);

TEST(VerificationCurveTest, FindsAKeyOnAnotherCurve)
{
    for (const char* const curve : {"secp384r1", "secp256k1", "brainpoolP256r1"}) { // two of the same length
        const KeyPointer key(EVP_EC_gen(curve));
        EXPECT_STREQ("wrong kind of key", causeOf(kGeneration30, key.get(), Bytes(64))) << curve;
    }
}

TEST(VerificationCurveTest, FindsAnRsaKeyOfAnotherLength)
{
    const KeyPointer key(EVP_RSA_gen(2048));
    EXPECT_STREQ("wrong kind of key", causeOf(kGeneration20B, key.get(), Bytes(256)));
}

/// What causes a program that reads the cause is told, of signatures that somebody has made wrongly.
class VerificationCauseTest : public testing::Test
{
protected:
    static Bytes joined(Bytes first, const Bytes& second)
    {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }
    /// A number plus @p difference, as wide as it was.
    static Bytes plus(Bytes number, int difference)
    {
        const OpensslPointer<BIGNUM, BN_free> value(BN_bin2bn(number.data(), static_cast<int>(number.size()), nullptr));
        EXPECT_EQ(1, difference < 0 ? BN_sub_word(value.get(), 1) : BN_add_word(value.get(), difference));
        BN_bn2binpad(value.get(), number.data(), static_cast<int>(number.size()));
        return number;
    }
    static Bytes modulusOf(const EVP_PKEY* key)
    {
        BIGNUM* modulus = nullptr;
        EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &modulus);
        const OpensslPointer<BIGNUM, BN_free> owned(modulus);
        Bytes bytes(kGeneration20B.responseLength);
        BN_bn2binpad(modulus, bytes.data(), static_cast<int>(bytes.size()));
        return bytes;
    }
    static Bytes inDer(const Bytes& rThenS)
    {
        const OpensslPointer<ECDSA_SIG, ECDSA_SIG_free> pair(ECDSA_SIG_new());
        ECDSA_SIG_set0(pair.get(), BN_bin2bn(rThenS.data(), 32, nullptr), BN_bin2bn(&rThenS[32], 32, nullptr));
        Bytes der(static_cast<std::size_t>(i2d_ECDSA_SIG(pair.get(), nullptr)));
        auto* position = der.data();
        i2d_ECDSA_SIG(pair.get(), &position);
        return der;
    }

    const KeyPointer m_rsa = readTestKey("chip20b.key");
    const KeyPointer m_curve = readTestKey("chip30.key");
    const Bytes m_signature = signAs(kGeneration30, m_curve.get(), Bytes(kGeneration30.challengeLength));
    const Bytes m_r = Bytes(m_signature.begin(), m_signature.begin() + 32);
    const Bytes m_s = Bytes(m_signature.begin() + 32, m_signature.end());
    /// How many points the curve has: r and s are below.
    const Bytes m_order = *fromHex("ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551");
};

TEST_F(VerificationCauseTest, IsNoneForAGoodSignature)
{
    EXPECT_EQ(nullptr, causeOf(kGeneration30, m_curve.get(), m_signature));
    EXPECT_EQ(nullptr, causeOf(kGeneration20B, m_rsa.get(),
                               signAs(kGeneration20B, m_rsa.get(), Bytes(kGeneration20B.challengeLength))));
}

TEST_F(VerificationCauseTest, IsTheOrderOfRAndS)
{
    EXPECT_STREQ("r and s exchanged", causeOf(kGeneration30, m_curve.get(), joined(m_s, m_r)));
}

TEST_F(VerificationCauseTest, IsAnROrSThatNoKeyMakes)
{
    for (const Bytes& number : {Bytes(32), m_order, plus(m_order, 1)}) {
        EXPECT_STREQ("signature out of range", causeOf(kGeneration30, m_curve.get(), joined(number, m_s)));
        EXPECT_STREQ("signature out of range", causeOf(kGeneration30, m_curve.get(), joined(m_r, number)));
    }
    for (const Bytes& number : {plus(Bytes(32), 1), plus(m_order, -1)}) {
        EXPECT_STREQ("wrong signature", causeOf(kGeneration30, m_curve.get(), joined(number, m_s)));
        EXPECT_STREQ("wrong signature", causeOf(kGeneration30, m_curve.get(), joined(m_r, number)));
    }
}

TEST_F(VerificationCauseTest, IsANumberThatNoRsaKeyMakes)
{
    const Bytes modulus = modulusOf(m_rsa.get());
    EXPECT_STREQ("signature out of range", causeOf(kGeneration20B, m_rsa.get(), modulus));
    EXPECT_STREQ("signature out of range", causeOf(kGeneration20B, m_rsa.get(), Bytes(modulus.size())));
    EXPECT_STREQ("wrong signature", causeOf(kGeneration20B, m_rsa.get(), plus(modulus, 1)));
    EXPECT_STREQ("wrong signature", causeOf(kGeneration20B, m_rsa.get(), plus(modulus, -1)));
}

TEST_F(VerificationCauseTest, IsDerForTheProtocolThatSignsWithRAndS)
{
    Bytes der = inDer(m_signature);
    const auto flaw = findFlaw(kGeneration30, m_curve.get(), Bytes(kGeneration30.challengeLength), der);
    ASSERT_TRUE(flaw);
    EXPECT_STREQ("signature in DER", flaw->cause);
    EXPECT_EQ("the signature has " + std::to_string(der.size()) + " bytes instead of 64: it is in DER", flaw->found);
    EXPECT_STREQ("wrong signature", causeOf(kGeneration20B, m_rsa.get(), der));

    der.push_back(0);
    EXPECT_STREQ("wrong signature", causeOf(kGeneration30, m_curve.get(), der));
}

TEST_F(VerificationCauseTest, LeavesNothingInOpensslsQueueOfErrors)
{
    for (const Bytes& signature : {Bytes(), Bytes(7), Bytes(64, 0x55), m_signature}) {
        causeOf(kGeneration30, m_curve.get(), signature);
        EXPECT_EQ(0UL, ERR_peek_error());
    }
}

} // namespace
