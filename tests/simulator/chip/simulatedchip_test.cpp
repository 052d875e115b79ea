#include "simulator/chip/simulatedchip.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <string>

#include <gtest/gtest.h>

#include "tests/simulator/chip/testcredentials.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using namespace std::chrono_literals;
using VorelKestrel::AL::U8;

namespace {

constexpr U8 kGenerated = 0x10; // as status bytes
constexpr U8 kFailed = 0x70;
constexpr U8 kNone = 0x00;

ChipSettings settingsOf(U8 deviceVersion)
{
    ChipSettings settings;
    settings.deviceVersion = deviceVersion;
    return settings;
}

Bytes challengeOf(std::size_t length)
{
    Bytes challenge(length);
    std::iota(challenge.begin(), challenge.end(), U8{1});
    return challenge;
}

/// A chip with a host at its registers.
class Bench
{
public:
    explicit Bench(U8 deviceVersion) : Bench(settingsOf(deviceVersion)) {}
    explicit Bench(const ChipSettings& settings)
        : m_chip(settings, testCredentials(generationOf(settings.deviceVersion)), m_clock)
    {}

    /// Whether the chip acknowledges the whole message.
    bool write(U8 reg, const Bytes& value)
    {
        Bytes message{reg};
        message.insert(message.end(), value.begin(), value.end());
        return m_chip.acknowledge() && m_chip.write(message.data(), message.size()) == message.size();
    }

    Bytes read(U8 reg, std::size_t length)
    {
        EXPECT_TRUE(write(reg, {}));
        EXPECT_TRUE(m_chip.acknowledge());
        return readOn(length);
    }

    Bytes readOn(std::size_t length) const
    {
        Bytes value(length);
        m_chip.read(value.data(), value.size());
        return value;
    }

    U8 status() { return read(0x10, 1).front(); }

    /// The exchange up to and without the start command.
    void challenge()
    {
        if (&m_chip.generation() == &kGeneration20B) {
            write(0x11, {0, 128});
            write(0x20, {0, 20});
        }
        write(0x21, challengeOf(m_chip.generation().challengeLength));
    }

    void start() { EXPECT_TRUE(write(0x10, {1})); }
    void waitUntilDone() { m_clock.advance(30ms); }

    ManualClock m_clock;
    SimulatedChip m_chip;
};

class EachGeneration : public testing::TestWithParam<U8>
{};
std::string nameOfGeneration(const testing::TestParamInfo<U8>& version)
{
    return version.param == 3 ? "Protocol20B" : "Protocol30";
}
INSTANTIATE_TEST_SUITE_P(Generations, EachGeneration, testing::Values(U8{3}, U8{7}), nameOfGeneration);

TEST(SimulatedChipTest, ReadsItsIdentityFromTheFirstRegisters)
{
    ChipSettings settings = settingsOf(5);
    settings.firmwareVersion = 9;
    settings.deviceId = 0x01020304;
    Bench bench(settings);

    EXPECT_EQ((Bytes{5}), bench.read(0x00, 1));
    EXPECT_EQ((Bytes{9}), bench.read(0x01, 1));
    EXPECT_EQ((Bytes{2}), bench.read(0x02, 1));
    EXPECT_EQ((Bytes{0}), bench.read(0x03, 1));
    EXPECT_EQ((Bytes{1, 2, 3, 4}), bench.read(0x04, 4));
}

TEST(SimulatedChipTest, ReportsTheProtocolVersionOfItsGenerationUnlessToldAnother)
{
    EXPECT_EQ((Bytes{3, 0}), Bench(7).read(0x02, 2));

    ChipSettings settings = settingsOf(7);
    settings.protocolMajorVersion = U8{4};
    settings.protocolMinorVersion = U8{1};
    EXPECT_EQ((Bytes{4, 1}), Bench(settings).read(0x02, 2));
}

TEST(SimulatedChipTest, CanHaveAnyDeviceVersion)
{
    for (int version = 0; version <= 0xff; ++version)
        EXPECT_EQ(Bytes{static_cast<U8>(version)}, Bench(static_cast<U8>(version)).read(0x00, 1));
}

TEST(SimulatedChipTest, BelongsToProtocol30FromDeviceVersion7On)
{
    EXPECT_EQ(&kGeneration20B, &Bench(1).m_chip.generation());
    EXPECT_EQ(&kGeneration20B, &Bench(6).m_chip.generation());
    EXPECT_EQ(&kGeneration30, &Bench(7).m_chip.generation());
    EXPECT_EQ(&kGeneration30, &Bench(255).m_chip.generation());
}

TEST(SimulatedChipTest, ReadsOnIntoTheRegistersThatFollow)
{
    EXPECT_EQ((Bytes{7, 1, 3, 0, 0, 0, 2, 0}), Bench(7).read(0x00, 8));
}

TEST(SimulatedChipTest, ReadsAllOnesWhereThereIsNoRegister)
{
    Bench bench(7);

    EXPECT_EQ((Bytes{0xff, 0xff}), bench.read(0x0f, 2));
    EXPECT_EQ((Bytes{0, 0, 2, 0, 0xff, 0xff}), bench.read(0x04, 6));
}

TEST(SimulatedChipTest, ReadsTheSameRegisterAgainWithoutItsNumber)
{
    Bench bench(7);
    bench.read(0x02, 1);

    EXPECT_EQ((Bytes{3}), bench.readOn(1));
    EXPECT_EQ((Bytes{3}), bench.readOn(1));
}

TEST(SimulatedChipTest, DoesNotAcknowledgeWhatIsWrittenToAReadOnlyRegister)
{
    for (const U8 reg : Bytes{0x00, 0x04, 0x12, 0x30, 0x31, 0x40}) {
        Bench bench(3);
        const Bytes before = bench.read(reg, 4);

        EXPECT_FALSE(bench.write(reg, {0xaa})) << int{reg};
        EXPECT_EQ(before, bench.read(reg, 4)) << int{reg};
    }
}

TEST(SimulatedChipTest, OnProtocol30TheHostCannotWriteTheLengths)
{
    Bench bench(7);

    EXPECT_FALSE(bench.write(0x11, {0, 128}));
    EXPECT_FALSE(bench.write(0x20, {0, 32}));
    EXPECT_EQ((Bytes{0, 0}), bench.read(0x20, 2));
}

TEST(SimulatedChipTest, OnProtocol20BTheHostReadsBackTheLengthsThatItWrote)
{
    Bench bench(3);

    EXPECT_TRUE(bench.write(0x11, {0, 128}));
    EXPECT_TRUE(bench.write(0x20, {0, 20}));
    EXPECT_EQ((Bytes{0, 128}), bench.read(0x11, 2));
    EXPECT_EQ((Bytes{0, 20}), bench.read(0x20, 2));
}

TEST(SimulatedChipTest, OnProtocol30TheChipTellsTheLengthOfTheChallengeThatItTook)
{
    Bench bench(7);

    bench.write(0x21, challengeOf(32));
    EXPECT_EQ((Bytes{0, 32}), bench.read(0x20, 2));
    bench.write(0x21, challengeOf(31));
    EXPECT_EQ((Bytes{0, 31}), bench.read(0x20, 2));
}

TEST_P(EachGeneration, DoesNotAcknowledgeAChallengeThatIsTooLong)
{
    Bench bench(GetParam());

    EXPECT_FALSE(bench.write(0x21, challengeOf(bench.m_chip.generation().challengeLength + 1)));
}

TEST_P(EachGeneration, HoldsItsCertificateInPagesOf128Bytes)
{
    Bench bench(GetParam());
    const Bytes& certificate = bench.m_chip.credentials().certificate();
    const Bytes length = bench.read(0x30, 2);
    EXPECT_EQ(certificate.size(), length[0] * 256U + length[1]);

    Bytes pages;
    for (U8 page = 1; pages.size() < certificate.size(); ++page) {
        const Bytes content =
            bench.read(static_cast<U8>(0x30 + page), std::min<std::size_t>(128, certificate.size() - pages.size()));
        pages.insert(pages.end(), content.begin(), content.end());
    }
    EXPECT_EQ(certificate, pages);
}

TEST_P(EachGeneration, RefusesItsAddressWhileItGenerates)
{
    Bench bench(GetParam());
    bench.challenge();
    bench.start();

    EXPECT_FALSE(bench.m_chip.acknowledge());
    bench.m_clock.advance(30ms - 1ns);
    EXPECT_FALSE(bench.m_chip.acknowledge());
    bench.m_clock.advance(1ns);
    EXPECT_TRUE(bench.m_chip.acknowledge());
    EXPECT_EQ(kGenerated, bench.status());
}

TEST_P(EachGeneration, CanRefuseACountOfMessagesInPlaceOfATime)
{
    ChipSettings settings = settingsOf(GetParam());
    settings.busyTime = 0ms;
    settings.busyRefusals = 2;
    Bench bench(settings);
    bench.challenge();
    bench.start();

    EXPECT_FALSE(bench.m_chip.acknowledge());
    EXPECT_FALSE(bench.m_chip.acknowledge());
    EXPECT_TRUE(bench.m_chip.acknowledge());
}

TEST_P(EachGeneration, GivesAResponseOfItsLengthAfterAWholeExchange)
{
    Bench bench(GetParam());
    bench.challenge();
    bench.start();
    bench.waitUntilDone();

    const std::size_t expected = bench.m_chip.generation().responseLength;
    EXPECT_EQ(kGenerated, bench.status());
    EXPECT_EQ((Bytes{0, static_cast<U8>(expected)}), bench.read(0x11, 2));
    const Bytes responseAndMore = bench.read(0x12, expected + 1);
    EXPECT_NE(Bytes(expected, 0xff), Bytes(responseAndMore.begin(), responseAndMore.end() - 1));
    EXPECT_EQ(0xff, responseAndMore.back());
}

TEST_P(EachGeneration, ReportsNoResultBeforeTheStartCommand)
{
    Bench bench(GetParam());
    EXPECT_EQ(kNone, bench.status());

    bench.challenge();
    EXPECT_EQ(kNone, bench.status());
}

TEST_P(EachGeneration, ReportsNoResultAgainAfterTheNextChallenge)
{
    Bench bench(GetParam());
    bench.challenge();
    bench.start();
    bench.waitUntilDone();
    bench.challenge();

    EXPECT_EQ(kNone, bench.status());
}

TEST_P(EachGeneration, FailsAtOnceWhenStartedWithoutAChallenge)
{
    Bench bench(GetParam());
    bench.start();

    EXPECT_EQ(kFailed, bench.status());
}

TEST_P(EachGeneration, FailsWhenStartedAgainWithoutANewChallenge)
{
    Bench bench(GetParam());
    bench.challenge();
    bench.start();
    bench.waitUntilDone();
    bench.start();

    EXPECT_EQ(kFailed, bench.status());
}

TEST_P(EachGeneration, FailsAtAnUnknownCommandAndForgetsTheChallenge)
{
    Bench bench(GetParam());
    bench.challenge();
    bench.write(0x10, {2});
    EXPECT_EQ(kFailed, bench.status());

    bench.start();
    EXPECT_EQ(kFailed, bench.status());
}

TEST_P(EachGeneration, FailsAtAChallengeOfTheWrongLength)
{
    Bench bench(GetParam());
    const U8 length = static_cast<U8>(bench.m_chip.generation().challengeLength - 1);
    bench.write(0x11, {0, 128});
    bench.write(0x20, {0, length});
    bench.write(0x21, challengeOf(length));
    bench.start();

    EXPECT_EQ(kFailed, bench.status());
}

TEST(SimulatedChipTest, OnProtocol20BFailsWithoutAnnouncedResponseLength)
{
    Bench bench(3);
    bench.write(0x20, {0, 20});
    bench.write(0x21, challengeOf(20));
    bench.start();

    EXPECT_EQ(kFailed, bench.status());
}

TEST(SimulatedChipTest, OnProtocol20BFailsWithoutAnnouncedChallengeLength)
{
    Bench bench(3);
    bench.write(0x11, {0, 128});
    bench.write(0x21, challengeOf(20));
    bench.start();

    EXPECT_EQ(kFailed, bench.status());
}

TEST(SimulatedChipTest, OnProtocol20BFailsWhenTheChallengeIsNotAsLongAsAnnounced)
{
    Bench bench(3);
    bench.write(0x11, {0, 128});
    bench.write(0x20, {0, 19});
    bench.write(0x21, challengeOf(20));
    bench.start();

    EXPECT_EQ(kFailed, bench.status());
}

TEST(SimulatedChipTest, OnProtocol20BFailsWhenTheHostHasNoRoomForTheSignature)
{
    Bench bench(3);
    bench.challenge();
    bench.write(0x11, {0, 127});
    bench.start();

    EXPECT_EQ(kFailed, bench.status());
}

TEST(SimulatedChipTest, OnProtocol20BWantsTheLengthsAnnouncedForEveryExchange)
{
    Bench bench(3);
    bench.challenge();
    bench.start();
    bench.waitUntilDone();
    bench.write(0x20, {0, 20});
    bench.write(0x21, challengeOf(20));
    bench.start();

    EXPECT_EQ(kFailed, bench.status());
}

TEST(SimulatedChipTest, ThatRestartsWhileItSignsIsThenAsItWasWhenItWasSwitchedOn)
{
    ChipSettings settings = settingsOf(7);
    settings.busyTime = 0ms;
    settings.restartsWhileSigning = true;
    Bench bench(settings);
    const Bytes challengeBefore = bench.read(0x21, 4);
    EXPECT_TRUE(bench.write(0x21, challengeOf(32)));
    EXPECT_TRUE(bench.write(0x10, {1}));
    EXPECT_EQ(kNone, bench.status());
    EXPECT_EQ((Bytes{0, 0}), bench.read(0x20, 2));
    EXPECT_EQ((Bytes{0, 0}), bench.read(0x11, 2));
    EXPECT_EQ(challengeBefore, bench.read(0x21, 4));
    EXPECT_TRUE(bench.write(0x10, {1}));
    EXPECT_EQ(kFailed, bench.status()); // it has no challenge
}

TEST(SimulatedChipTest, RefusesCredentialsOfTheOtherGeneration)
{
    const ManualClock clock;
    EXPECT_THROW(SimulatedChip(settingsOf(7), testCredentials(kGeneration20B), clock), CredentialsError);
    EXPECT_THROW(SimulatedChip(settingsOf(3), testCredentials(kGeneration30), clock), CredentialsError);
}

TEST(SimulatedChipTest, RefusesACertificateForWhichItHasNoPages)
{
    const ManualClock clock;
    const auto fitting = std::make_shared<const Credentials>(Credentials::generate(kGeneration30, 1280));
    const auto tooLong = std::make_shared<const Credentials>(Credentials::generate(kGeneration30, 1281));

    EXPECT_NO_THROW(SimulatedChip(settingsOf(7), fitting, clock));
    EXPECT_THROW(SimulatedChip(settingsOf(7), tooLong, clock), CredentialsError);
}

} // namespace
