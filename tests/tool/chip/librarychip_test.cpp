#include "tool/chip/librarychip.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "authchipdriver/registermap.h"
#include "common/scopeddescriptor.h"
#include "tests/support/drivertest.h"
#include "tests/support/healthychip.h"
#include "tool/chip/driverlines.h"

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;
using namespace testsupport;

TEST(DiagnosisTest, OfAMissingNodeSaysSo)
{
    EXPECT_EQ("open /dev/i2c-missing", diagnose({"/dev/i2c-missing", 0x2a}).tried());
}

TEST(DiagnosisTest, OfANodeWithoutPermissionSaysSo)
{
    std::string node = std::filesystem::temp_directory_path() / "authchip-node-XXXXXX";
    const ScopedDescriptor file(mkstemp(node.data()));
    ASSERT_EQ(0, fchmod(file.get(), 0));
    constexpr uid_t kNobody = 65534;
    const bool isRoot = geteuid() == 0; // whom no permission stops
    if (isRoot && seteuid(kNobody) != 0)
        GTEST_SKIP() << "this root cannot become somebody else";
    const Failure failure = diagnose({node, 0x2a});
    ASSERT_TRUE(!isRoot || seteuid(0) == 0);
    unlink(node.c_str());

    EXPECT_EQ("Permission denied (EACCES)", failure.answer());
}

/// The chip of the library, in front of the fake bus, and the drivers' log as the tool reads it.
class LibraryChipTest : public BusTest
{
protected:
    void arrangeChip(bool protocol30)
    {
        arrangeHealthyChip(m_bus, protocol30);
        m_bus.holds(ACD::kRegisterDeviceVersion, {AL::U8(protocol30 ? 7 : 3)});
    }
    std::unique_ptr<Chip> detect() { return LibraryChipAccess({FakeBus::kDevice, FakeBus::kAddress}, m_log).detect(); }

    template<typename Action>
    static Failure failureOf(Action action)
    {
        try {
            action();
        } catch (const Failure& failure) {
            return failure;
        }
        return {"none", "", "nothing failed", ""};
    }
    static std::string lineChanged(const char* line)
    {
        return std::string("The tool looks for the drivers' log line \"") + line +
               "\". If that line has changed, change tool/chip/driverlines.h, too.";
    }

private:
    LibraryLog m_log{0, ""};
};

class LibraryChipOfEachGenerationTest : public LibraryChipTest, public testing::WithParamInterface<bool>
{};

INSTANTIATE_TEST_SUITE_P(Generations, LibraryChipOfEachGenerationTest, testing::Bool(),
                         [](const auto& protocol30) { return protocol30.param ? "Protocol30" : "Protocol20B"; });

TEST_P(LibraryChipOfEachGenerationTest, NamesTheCertificatePageThatWasShort)
{
    arrangeChip(GetParam());
    m_bus.deliversOnly(0x33, 7);
    const auto chip = detect();

    EXPECT_EQ("read page 3 of the certificate from the chip at 0x2a on /dev/i2c-7",
              failureOf([&] { chip->certificate(); }).tried())
        << lineChanged(kLineOfFailedPage);
}

TEST_P(LibraryChipOfEachGenerationTest, NamesTheCertificatePageThatFailed)
{
    arrangeChip(GetParam());
    m_bus.failsReadsOf(0x32);
    const auto chip = detect();

    EXPECT_EQ("read page 2 of the certificate from the chip at 0x2a on /dev/i2c-7",
              failureOf([&] { chip->certificate(); }).tried())
        << lineChanged(kLineOfFailedPage);
}

TEST_F(LibraryChipTest, SaysThatTheChipCountedAnotherChallengeLength)
{
    arrangeChip(true);
    m_bus.holds(ACD::kRegisterChallengeLength, {0, 31});
    const auto chip = detect();

    EXPECT_STREQ("wrong length", failureOf([&] { chip->sign(counting(32)); }).cause())
        << lineChanged(kLineOfWrongLength);
}

} // namespace
