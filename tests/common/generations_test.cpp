#include "common/generations.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <authchipdriver/authchipfactory.h>

#include "authchipdriver/registermap.h"
#include "tests/support/drivertest.h"

using namespace testsupport;

namespace {

using namespace VorelKestrel;
using VorelKestrel::ACD::AuthChipDriver;
using VorelKestrel::ACD::AuthChipFactory;

constexpr int kLargestDeviceVersion = 0xff;

/// The library's factory in front of a chip of each device version. ctest runs each case in its own process.
class FactoryAndTable : public BusTest
{
protected:
    AuthChipDriver* detect(std::uint8_t deviceVersion)
    {
        m_bus.holds(ACD::kRegisterDeviceVersion, {deviceVersion});
        return AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress);
    }
};

class EachDeviceVersionWithDriver : public FactoryAndTable, public testing::WithParamInterface<DeviceVersion>
{};

TEST_P(EachDeviceVersionWithDriver, YieldsADriverWithTheLengthsOfItsGeneration)
{
    AuthChipDriver* driver = detect(GetParam().number);
    ASSERT_NE(nullptr, driver);
    int challengeLength = 0;
    int responseLength = 0;
    driver->getChallengeDataMaximumLength(challengeLength);
    driver->getChallengeResponseDataMaximumLength(responseLength);
    EXPECT_EQ(GetParam().generation->challengeLength, static_cast<std::size_t>(challengeLength));
    EXPECT_EQ(GetParam().generation->responseLength, static_cast<std::size_t>(responseLength));
}

std::vector<DeviceVersion> withDriver()
{
    std::vector<DeviceVersion> versions;
    for (const DeviceVersion& version : kDeviceVersions) {
        if (version.generation != nullptr)
            versions.push_back(version);
    }
    return versions;
}

INSTANTIATE_TEST_SUITE_P(Generations, EachDeviceVersionWithDriver, testing::ValuesIn(withDriver()),
                         [](const auto& version) { return "DeviceVersion" + std::to_string(version.param.number); });

TEST_F(FactoryAndTable, HaveNoDriverForAnyOtherDeviceVersion)
{
    for (int number = 0; number <= kLargestDeviceVersion; ++number) {
        const auto deviceVersion = static_cast<std::uint8_t>(number);
        if (findGeneration(deviceVersion) == nullptr) {
            EXPECT_EQ(nullptr, detect(deviceVersion)) << number;
        }
    }
}

TEST(GenerationsTest, DeviceVersionsAscend)
{
    int last = -1;
    for (const DeviceVersion& version : kDeviceVersions) {
        EXPECT_LT(last, version.number);
        last = version.number;
    }
}

TEST(GenerationsTest, NamesTheProtocolsThatAreSupported)
{
    EXPECT_EQ("2.0B (device version 3 or 5) or 3.0 (device version 7)", supportedProtocols());
}

/// The row of the README's table: "| 3, 5 | 2.0B | 20 bytes, taken as a SHA-1 digest | RSA-1024, ..., 128 bytes |"
std::string readmeRow(const Generation& generation)
{
    std::string numbers;
    for (const DeviceVersion& version : kDeviceVersions) {
        if (version.generation == &generation)
            numbers += (numbers.empty() ? "" : ", ") + std::to_string(version.number);
    }
    return "| " + numbers + " | " + generation.protocol + " | " + std::to_string(generation.challengeLength) +
           " bytes, taken as a " + generation.digest + " digest |";
}

TEST(GenerationsTest, AreThoseOfTheReadme)
{
    std::ifstream file(README);
    const std::string readme{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (const Generation* generation : {&kGeneration20B, &kGeneration30}) {
        const auto row = readme.find(readmeRow(*generation));
        ASSERT_NE(std::string::npos, row) << readmeRow(*generation);
        const std::string rest = readme.substr(row, readme.find('\n', row) - row);
        const std::string length = std::to_string(generation->responseLength) + " bytes |";
        EXPECT_NE(std::string::npos, rest.find(length)) << length;
    }
}

} // namespace
