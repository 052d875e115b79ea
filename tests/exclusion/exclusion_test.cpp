// Processes that share a chip: no process gets in between the transfers of another's operation. The environment
// variable AUTHCHIP_TEST_OPERATIONS says how many operations a case is made of, and AUTHCHIP_TEST_SEED what they are
// ("random" draws one); both are printed.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/exclusion/workerprocesses.h"
#include "tests/support/healthychip.h"
#include "tests/support/privatelocks.h"
#include "tests/support/temporarydirectory.h"

using namespace testsupport;

namespace {

long wantedOperations()
{
    const char* const wanted = std::getenv("AUTHCHIP_TEST_OPERATIONS");
    return wanted != nullptr ? std::atol(wanted) : 1000;
}

unsigned wantedSeed()
{
    const char* const wanted = std::getenv("AUTHCHIP_TEST_SEED");
    if (wanted == nullptr)
        return 1;
    return wanted == std::string("random") ? std::random_device()() : static_cast<unsigned>(std::atol(wanted));
}

/// A healthy chip of one generation, and a lock that lives as long as the test: its creator is this process, which
/// outlives the ones that use it.
class ExclusionTest : public ::testing::TestWithParam<int>
{
protected:
    ExclusionTest()
    {
        const int deviceVersion = GetParam();
        for (const auto& [reg, content] : healthyChip(deviceVersion == 7))
            m_memory.chip().holds(reg, content);
        m_memory.chip().holds(0x00, {static_cast<VorelKestrel::AL::U8>(deviceVersion)});
    }

    Arbiter& arbiter() const { return m_memory.chip().arbiter; }
    void report(int kills) const
    {
        std::cout << "operations: " << arbiter().operations() << ", seed " << m_seed << '\n'
                  << "wait for the bus: " << arbiter().waits().text() << '\n';
        if (kills > 0)
            std::cout << "processes killed: " << kills << '\n'
                      << "from a kill to the next operation: " << arbiter().waitsAfterKills().text() << '\n'
                      << "of them inside an operation: " << arbiter().waitsAfterKillsOfHolders().text() << '\n';
    }

    const TemporaryDirectory m_otherFolder; // for temporary files
    const PrivateLocks m_locks;
    const unsigned m_seed = wantedSeed();
    const long m_operations = wantedOperations();
    SharedChipMemory m_memory;
    WorkerProcesses m_workers{m_memory, m_seed};
};

INSTANTIATE_TEST_SUITE_P(DeviceVersion, ExclusionTest, ::testing::Values(3, 7), ::testing::PrintToStringParamName());

TEST_P(ExclusionTest, NobodyBreaksIntoAnOperationOfAnother)
{
    arbiter().setGoal(m_operations);
    m_workers.startAll();

    EXPECT_EQ(0, m_workers.join());
    EXPECT_FALSE(arbiter().hasStopped()) << arbiter().reason();
    EXPECT_GE(arbiter().operations(), m_operations);
    report(0);
}

TEST_P(ExclusionTest, TheOthersGoOnWhenAProcessIsKilled)
{
    constexpr std::int64_t kOperationsBetweenKills = 30;
    const long wantedKills = std::max(20L, m_operations / 100);
    std::mt19937 random(m_seed);
    m_workers.startAll();

    int kills = 0;
    std::int64_t nextKill = 0; // not before this many operations, so that slowly starting processes also get to work
    while (!arbiter().hasStopped() && (kills < wantedKills || arbiter().operations() < m_operations)) {
        std::this_thread::sleep_for(std::chrono::microseconds(1000 + random() % 4000)); // the pace, and nothing more
        if (arbiter().operations() < nextKill || !m_workers.replaceOne(random))
            continue;
        ++kills;
        nextKill = arbiter().operations() + kOperationsBetweenKills;
    }
    arbiter().setGoal(m_operations);

    EXPECT_EQ(0, m_workers.join());
    EXPECT_FALSE(arbiter().hasStopped()) << arbiter().reason();
    EXPECT_GE(arbiter().operations(), m_operations);
    report(kills);
}

TEST_P(ExclusionTest, AProcessWithAnotherFolderForTemporaryFilesHasAnotherLockAndIsNoticed)
{
    m_workers.start(0);
    m_workers.start(1, "locked", m_otherFolder.path());

    m_workers.join();
    EXPECT_TRUE(arbiter().hasStopped());
    std::cout << arbiter().reason() << '\n';
}

TEST_P(ExclusionTest, AProcessThatIgnoresTheLockIsNoticed)
{
    m_workers.start(0);
    m_workers.start(1, "unlocked");

    m_workers.join();
    EXPECT_TRUE(arbiter().hasStopped());
    std::cout << arbiter().reason() << '\n';
}

} // namespace
