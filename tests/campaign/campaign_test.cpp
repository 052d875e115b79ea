// Random faults against the library and against the oracle, which must agree on every one.
//
// The quick campaign always plays the same scripts. The soak plays others each time, for as long as
// AUTHCHIP_TEST_SOAK_SECONDS says; what it found is played again with AUTHCHIP_TEST_CAMPAIGN_SEED and
// AUTHCHIP_TEST_CAMPAIGN_SCRIPT, both of which a disagreement prints.

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/campaign/blocks.h"
#include "tests/campaign/oracle.h"
#include "tests/campaign/script.h"
#include "tests/campaign/trial.h"

using namespace testsupport;

namespace campaign { namespace {

constexpr std::uint32_t kQuickSeed = 20240607;
constexpr std::uint32_t kQuickScripts = 20000;
constexpr unsigned long kNone = ULONG_MAX; // no script in particular

unsigned long environmentNumber(const char* name, unsigned long otherwise)
{
    const char* const text = std::getenv(name);
    return text != nullptr ? std::stoul(text) : otherwise;
}

bool stops(const Behaviour& behaviour)
{
    return behaviour.result.rfind("stopped", 0) == 0;
}

/// Where two lists of events part, in words.
std::string firstDifference(const std::vector<std::string>& library, const std::vector<std::string>& oracle)
{
    const auto pair = std::mismatch(library.begin(), library.end(), oracle.begin(), oracle.end());
    const auto text = [](const auto& position, const auto& events) {
        return position == events.end() ? std::string("(nothing more)") : *position;
    };
    return "event " + std::to_string(pair.first - library.begin()) + "\n    library: " + text(pair.first, library) +
           "\n    oracle:  " + text(pair.second, oracle) + "\n";
}

/// What the library and the oracle do not agree on; empty where they do.
std::string disagreement(const Behaviour& library, const Behaviour& oracle)
{
    std::string text;
    const auto compare = [&text](const char* what, const std::string& left, const std::string& right) {
        if (left != right)
            text += std::string(what) + "\n    library: " + left + "\n    oracle:  " + right + "\n";
    };
    compare("result", library.result, oracle.result);
    if (oracle.outputs != "?")
        compare("outputs", library.outputs, oracle.outputs);
    if (library.buffer != oracle.buffer)
        compare("buffer", hex(library.buffer), hex(oracle.buffer));
    if (library.events != oracle.events)
        text += firstDifference(library.events, oracle.events);
    return text;
}

/// Plays one script to both sides. Returns the expected behaviour.
Behaviour play(std::uint32_t seed, std::uint32_t number)
{
    const Script script = makeScript(seed, number);
    Behaviour expected = predict(script);
    const Behaviour library = stops(expected) ? performToTheEnd(script) : perform(script);
    const std::string difference = disagreement(library, expected);
    constexpr std::uint32_t kSample = 4; // it takes twice as long as the rest
    if (number % kSample == 0 && !stops(expected)) {
        EXPECT_EQ(0, blocksLeftBy(script))
            << "by AUTHCHIP_TEST_CAMPAIGN_SEED=" << seed << " AUTHCHIP_TEST_CAMPAIGN_SCRIPT=" << number;
    }
    EXPECT_EQ("", difference) << "AUTHCHIP_TEST_CAMPAIGN_SEED=" << seed << " AUTHCHIP_TEST_CAMPAIGN_SCRIPT=" << number
                              << ": " << describe(script);
    return expected;
}

/// How often something came about in a campaign: operations with their results, and every line.
class Tally
{
public:
    void count(const Script& script, const Behaviour& behaviour)
    {
        ++m_times[nameOf(script.operation)];
        ++m_times[nameOf(script.operation) + (" with " + behaviour.result)];
        if (behaviour.result == "exception")
            ++m_times["exception"];
        for (const std::string& event : behaviour.events)
            ++m_times[event];
    }

    /// Of everything whose name contains @p part.
    int times(const std::string& part) const
    {
        int sum = 0;
        for (const auto& [name, times] : m_times)
            if (name.find(part) != std::string::npos)
                sum += times;
        return sum;
    }

private:
    std::map<std::string, int> m_times;
};

/// A row of each table of failures, and what else a campaign has to have brought about.
constexpr const char* kFailures[] = {
    "Failed to read device ID, error=1",
    "Failed to read certificate data length, error=1",
    "Read failed: read=",
    "Incomplete read: expected=",
    "Successfully read all data: 1920 bytes",
    "Failed to write signature data length, error=1",
    "Failed to write challenge length, error=1",
    "Failed to write challenge data",
    "Failed to write status for new signature, error=1",
    "Failed to read status, error=1",
    "Invalid status result: ",
    "Failed to read signature length, error=1",
    "Failed to read signature data",
    "Invalid parameter: challengeResponse is NULL",
    "Invalid challenge length: expected=32, actual=",
    "Failed to read challenge length, error=1",
    "Invalid challenge length returned: expected=32, actual=",
    "Failed to read challenge response length, error=1",
    "Failed to read challenge response data",
    "Write failed: expected=",
    "Read failed: expected=",
    "unable to read byte from register",
    "unable to read word from register",
    "unable to read dword from register",
    "unable to write byte to register",
    "unable to write word to register",
    "unable to write dword to register",
    "Unable to open ",
    "Unable to select address 0x",
    "Error in i2cRead, readRes=",
    "driver version 1.0 is not yet supported",
    "driver version 2.0A is not yet supported",
    "Unknown authentication chip driver version: ",
    "newSignature with 0",
    "newSignature with 1",
    "newSignature with 2",
    "newSignature with exception",
    "newSignature with stopped: (value&0xffff0000) == 0",
    "writeByte with stopped: (value&0xffffff00) == 0",
    "writeWord with stopped: (value&0xffff0000) == 0",
    "getAccessoryCertificateData with exception",
    "getAuthChipDriverInstance with 2.0B",
    "getAuthChipDriverInstance with 3.0",
    "getAuthChipDriverInstance with exception",
    "rawRead with exception",
    "write of -",
};

void playTheQuickCampaign()
{
    constexpr int kEnough = 5; // fewer would say little of a failure
    Tally tally;
    for (std::uint32_t number = 0; number < kQuickScripts && !::testing::Test::HasFailure(); ++number)
        tally.count(makeScript(kQuickSeed, number), play(kQuickSeed, number));

    for (int operation = 0; operation < kOperations; ++operation)
        EXPECT_GE(tally.times(nameOf(static_cast<Function>(operation))), 100);
    for (const char* const failure : kFailures)
        EXPECT_GE(tally.times(failure), kEnough) << failure;
}

void playFor(std::chrono::seconds duration, std::uint32_t seed)
{
    std::cerr << "AUTHCHIP_TEST_CAMPAIGN_SEED=" << seed << std::endl;
    const auto end = std::chrono::steady_clock::now() + duration;
    std::uint32_t number = 0;
    while (std::chrono::steady_clock::now() < end && !::testing::Test::HasFailure())
        play(seed, number++);
    std::cerr << number << " scripts" << std::endl;
}

TEST(CampaignTest, RandomFaultsHaveTheOutcomeThatTheTablesOfFailuresGive)
{
    const auto seed =
        static_cast<std::uint32_t>(environmentNumber("AUTHCHIP_TEST_CAMPAIGN_SEED", std::random_device{}()));
    const unsigned long script = environmentNumber("AUTHCHIP_TEST_CAMPAIGN_SCRIPT", kNone);
    const unsigned long seconds = environmentNumber("AUTHCHIP_TEST_SOAK_SECONDS", 0);
    if (script != kNone)
        play(seed, static_cast<std::uint32_t>(script));
    else if (seconds > 0)
        playFor(std::chrono::seconds(seconds), seed);
    else
        playTheQuickCampaign();
}

}} // namespace campaign
