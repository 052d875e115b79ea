// Wireshark loads the dissector as one file, so it has its own tables.

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "authchipdriver/registermap.h"
#include "common/generations.h"
#include "common/hex.h"

namespace {

using namespace VorelKestrel;

std::string dissector()
{
    std::ifstream file(DISSECTOR);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The text in the dissector between @p begin and the next @p end.
std::string tableOf(const std::string& begin, const std::string& end)
{
    const std::string text = dissector();
    const auto first = text.find(begin);
    if (first == std::string::npos)
        return "no " + begin;
    const auto start = first + begin.size();
    return text.substr(start, text.find(end, start) - start);
}

TEST(DissectorTest, HasTheDeviceVersionsOfTheTable)
{
    std::string expected;
    for (const DeviceVersion& version : kDeviceVersions)
        expected +=
            (expected.empty() ? "[" : ", [") + std::to_string(version.number) + "] = \"" + version.protocol + '"';
    EXPECT_EQ(expected, tableOf("local protocols = { ", " }"));
}

TEST(DissectorTest, HasTheRegistersOfTheTable)
{
    std::string expected;
    for (const ACD::Register& row : ACD::kRegisterMap)
        expected += "    [" + toHex(row.number, 2) + "] = \"" + row.shortName + "\",\n";
    EXPECT_EQ(expected, tableOf("local registers = {\n", "}"));
}

TEST(DissectorTest, HasThePagesOfTheLongestCertificate)
{
    int pages = 0;
    for (const DeviceVersion& version : kDeviceVersions)
        pages = version.generation == nullptr ? pages : std::max(pages, version.generation->certificatePages);
    EXPECT_EQ(std::to_string(pages), tableOf("local lastPage = ", "\n"));
}

} // namespace
