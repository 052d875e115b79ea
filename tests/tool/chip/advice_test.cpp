#include "tool/chip/advice.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <ostream>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

constexpr Step kSteps[] = {Step::OpenNode,    Step::SetTimeout,   Step::SelectAddress,
                           Step::SetRegister, Step::ReadRegister, Step::WriteRegister};
const ChipLocation kLocation = {"/dev/i2c-1", 0x2a};

struct Refusal
{
    Step step;
    int error;
    const char* tried;
    const char* answer;
    const char* next; // a part of it
};

std::ostream& operator<<(std::ostream& stream, const Refusal& refusal)
{
    return stream << refusal.tried << ": " << refusal.answer;
}

/// "OpenNodeENOENT".
std::string nameOf(const testing::TestParamInfo<Refusal>& refusal)
{
    static const std::map<Step, std::string> names = {
        {Step::OpenNode, "OpenNode"},           {Step::SetTimeout, "SetTimeout"},
        {Step::SelectAddress, "SelectAddress"}, {Step::SetRegister, "SetRegister"},
        {Step::ReadRegister, "ReadRegister"},   {Step::WriteRegister, "WriteRegister"}};
    const int error = refusal.param.error;
    return names.at(refusal.param.step) + (error == 0 ? "WithoutAnError" : strerrorname_np(error));
}

class RefusalTest : public testing::TestWithParam<Refusal>
{};

TEST_P(RefusalTest, IsExplainedByWhatWasTriedWhatCameAndWhatToDo)
{
    const auto& refusal = GetParam();
    const Failure failure = explainRefusal(refusal.step, refusal.error, kLocation);
    EXPECT_STREQ(causeOfRefusal(refusal.step, refusal.error), failure.cause());
    EXPECT_EQ(refusal.error == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(refusal.error),
              failure.json()["errno"]);
    EXPECT_EQ(refusal.tried, failure.tried());
    EXPECT_EQ(refusal.answer, failure.answer());
    EXPECT_NE(std::string::npos, failure.next().find(refusal.next)) << failure.next();
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, RefusalTest,
    testing::Values(
        Refusal{Step::OpenNode, ENOENT, "open /dev/i2c-1", "No such file or directory (ENOENT)", "/dev/i2c-"},
        Refusal{Step::OpenNode, EACCES, "open /dev/i2c-1", "Permission denied (EACCES)", "ls -l /dev/i2c-1"},
        Refusal{Step::OpenNode, EPERM, "open /dev/i2c-1", "Operation not permitted (EPERM)",
                "container ('--device /dev/i2c-1'), allow it in the unit ('DeviceAllow=/dev/i2c-1 rw')"},
        Refusal{Step::OpenNode, ENXIO, "open /dev/i2c-1", "No such device or address (ENXIO)", "modprobe i2c-dev"},
        Refusal{Step::OpenNode, ENODEV, "open /dev/i2c-1", "No such device (ENODEV)", "shows no i2c-1"},
        Refusal{Step::OpenNode, EMFILE, "open /dev/i2c-1", "Too many open files (EMFILE)", "ulimit -n"},
        Refusal{Step::OpenNode, ENFILE, "open /dev/i2c-1", "Too many open files in system (ENFILE)", "file-nr"},
        Refusal{Step::OpenNode, EIO, "open /dev/i2c-1", "Input/output error (EIO)", "dmesg"},
        Refusal{Step::SetRegister, EIO, "address the chip at 0x2a on /dev/i2c-1", "Input/output error (EIO)",
                "Some adapters report a missing acknowledgement so"},
        Refusal{Step::SetRegister, EPROTO, "address the chip at 0x2a on /dev/i2c-1", "Protocol error (EPROTO)",
                "Some adapters report a missing acknowledgement"},
        Refusal{Step::SetRegister, ENODEV, "address the chip at 0x2a on /dev/i2c-1", "No such device (ENODEV)",
                "controller is gone"},
        Refusal{Step::SetRegister, ESHUTDOWN, "address the chip at 0x2a on /dev/i2c-1",
                "Cannot send after transport endpoint shutdown (ESHUTDOWN)", "suspended"},
        Refusal{Step::SetRegister, EACCES, "address the chip at 0x2a on /dev/i2c-1", "Permission denied (EACCES)",
                "without power"},
        Refusal{Step::SetRegister, EOPNOTSUPP, "address the chip at 0x2a on /dev/i2c-1",
                "Operation not supported (EOPNOTSUPP)", "SMBus only"},
        Refusal{Step::ReadRegister, EOPNOTSUPP, "read from the chip at 0x2a on /dev/i2c-1",
                "Operation not supported (EOPNOTSUPP)", "refuses messages of this length"},
        Refusal{Step::WriteRegister, EOPNOTSUPP, "write to the chip at 0x2a on /dev/i2c-1",
                "Operation not supported (EOPNOTSUPP)", "refuses messages of this length"},
        Refusal{Step::WriteRegister, EIO, "write to the chip at 0x2a on /dev/i2c-1", "Input/output error (EIO)",
                "dmesg"},
        Refusal{Step::ReadRegister, 0, "read from the chip at 0x2a on /dev/i2c-1", "0 of 1 bytes came",
                "Try a slower bus clock"},
        Refusal{Step::SetTimeout, ENOTTY, "set the timeout of /dev/i2c-1", "Inappropriate ioctl for device (ENOTTY)",
                "/dev/i2c-1 is no I2C bus"},
        Refusal{Step::SetTimeout, EINVAL, "set the timeout of /dev/i2c-1", "Invalid argument (EINVAL)",
                "Leave --bus-timeout out"},
        Refusal{Step::SelectAddress, EBUSY, "select address 0x2a on /dev/i2c-1", "Device or resource busy (EBUSY)",
                "echo 1-002a > /sys/bus/i2c/devices/1-002a/driver/unbind"},
        Refusal{Step::SetTimeout, EPERM, "set the timeout of /dev/i2c-1", "Operation not permitted (EPERM)",
                "SystemCallFilter="},
        Refusal{Step::SelectAddress, EPERM, "select address 0x2a on /dev/i2c-1", "Operation not permitted (EPERM)",
                "SystemCallFilter="},
        Refusal{Step::SelectAddress, EACCES, "select address 0x2a on /dev/i2c-1", "Permission denied (EACCES)",
                "a security module"},
        Refusal{Step::SetRegister, EPERM, "address the chip at 0x2a on /dev/i2c-1", "Operation not permitted (EPERM)",
                "seccomp profile"},
        Refusal{Step::ReadRegister, EPERM, "read from the chip at 0x2a on /dev/i2c-1",
                "Operation not permitted (EPERM)", "seccomp profile"},
        Refusal{Step::WriteRegister, EPERM, "write to the chip at 0x2a on /dev/i2c-1",
                "Operation not permitted (EPERM)", "seccomp profile"},
        Refusal{Step::SelectAddress, EINVAL, "select address 0x2a on /dev/i2c-1", "Invalid argument (EINVAL)",
                "no such address"},
        Refusal{Step::SelectAddress, ENOTTY, "select address 0x2a on /dev/i2c-1",
                "Inappropriate ioctl for device (ENOTTY)", "/dev/i2c-1 is no I2C bus"},
        Refusal{Step::SetRegister, ENXIO, "address the chip at 0x2a on /dev/i2c-1", "No such device or address (ENXIO)",
                "SDA and\nSCL are not exchanged"},
        Refusal{Step::SetRegister, EREMOTEIO, "address the chip at 0x2a on /dev/i2c-1", "Remote I/O error (EREMOTEIO)",
                "each channel of a multiplexer is a bus of its own"},
        Refusal{Step::SetRegister, ETIMEDOUT, "address the chip at 0x2a on /dev/i2c-1",
                "Connection timed out (ETIMEDOUT)", "the bus is stuck: switch the chips off and on"},
        Refusal{Step::SetRegister, EAGAIN, "address the chip at 0x2a on /dev/i2c-1",
                "Resource temporarily unavailable (EAGAIN)", "Another master"},
        Refusal{Step::ReadRegister, ETIMEDOUT, "read from the chip at 0x2a on /dev/i2c-1",
                "Connection timed out (ETIMEDOUT)", "clock stretching"},
        Refusal{Step::ReadRegister, EIO, "read from the chip at 0x2a on /dev/i2c-1", "Input/output error (EIO)",
                "delivered nothing"}),
    nameOf);

TEST(AdviceTest, HasAdviceForEveryErrorAtEveryStep)
{
    constexpr int kUnheardOf = 4095;
    for (const auto step : kSteps)
        EXPECT_NE("", explainRefusal(step, kUnheardOf, kLocation).next());
}

TEST(AdviceTest, LeavesNoPlaceholderInAnyAdvice)
{
    for (const auto step : kSteps) {
        for (int error = 1; error < 134; ++error) {
            const Failure failure = explainRefusal(step, error, kLocation);
            EXPECT_EQ(std::string::npos, (failure.tried() + failure.next()).find('{')) << failure.next();
        }
    }
}

TEST(AdviceTest, SuggestsTheHalvedAddressOnlyForNoAnswerAtAnEvenAddressOfAChip)
{
    const auto suggestsHalf = [](Step step, int address) {
        return explainRefusal(step, ENXIO, {"/dev/i2c-1", address}).next().find("read/write bit") != std::string::npos;
    };
    EXPECT_TRUE(suggestsHalf(Step::SetRegister, 0x54));
    EXPECT_FALSE(suggestsHalf(Step::SetRegister, 0x55));
    EXPECT_FALSE(suggestsHalf(Step::SetRegister, 0x0e));
    EXPECT_FALSE(suggestsHalf(Step::OpenNode, 0x54));
}

TEST(AdviceTest, SuggestsTheHexadecimalAddressOfOneTypedInDecimalThatDoesNotAnswer)
{
    const ChipLocation decimal = {"/dev/i2c-1", 54, 0x54};
    EXPECT_NE(std::string::npos, explainRefusal(Step::SetRegister, ENXIO, decimal).next().find("If you mean 0x54"));
    EXPECT_EQ(std::string::npos, explainRefusal(Step::SetRegister, ETIMEDOUT, decimal).next().find("0x54"));
    EXPECT_EQ(std::string::npos, explainRefusal(Step::SetRegister, ENXIO, kLocation).next().find("If you mean"));
}

TEST(AdviceTest, NamesTheProtocolOfAVersionWithoutDriver)
{
    EXPECT_EQ("Its device version is 1: protocol 1.0, which is not supported", explainVersion(1, kLocation).answer());
    EXPECT_EQ("Its device version is 2: protocol 2.0A, which is not supported", explainVersion(2, kLocation).answer());
    EXPECT_EQ("Its device version is 6, which is unknown", explainVersion(6, kLocation).answer());
    for (const auto& [shifted, text] :
         {std::pair{0x81, "129"}, std::pair{0x82, "130"}, std::pair{0x83, "131"}}) // of 3, 5 and 7
        EXPECT_EQ(std::string("Its device version is ") + text +
                      ", which is unknown: that of a supported chip, shifted by one bit",
                  explainVersion(static_cast<std::uint8_t>(shifted), kLocation).answer());
    EXPECT_EQ("Its device version is 132, which is unknown", explainVersion(132, kLocation).answer());
    EXPECT_EQ("Its device version is 255, which is what an idle bus reads", explainVersion(255, kLocation).answer());
    EXPECT_EQ("Its device version is 0, which is what a data line that is held low reads",
              explainVersion(0, kLocation).answer());
}

TEST(AdviceTest, NamesAnErrorThatHasNoName)
{
    EXPECT_EQ("Unknown error 4095 (4095)", describeSystemError(4095));
}

TEST(AdviceTest, HasACauseForEveryRefusal)
{
    constexpr int kUnheardOf = 4095;
    EXPECT_STREQ("no permission", causeOfRefusal(Step::OpenNode, EACCES));
    EXPECT_STREQ("no answer", causeOfRefusal(Step::SetRegister, EREMOTEIO));
    EXPECT_STREQ("nothing delivered", causeOfRefusal(Step::ReadRegister, kUnheardOf));
    for (const auto step : kSteps)
        EXPECT_STRNE("", causeOfRefusal(step, kUnheardOf));
}

} // namespace
