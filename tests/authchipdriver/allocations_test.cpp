#include "tests/support/allocations.h"

#include <atomic>
#include <cstddef>

#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"
#include "tests/support/operations.h"
#include "tests/support/uncountedbus.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U8;

namespace {

std::atomic<const void*> g_copiedFrom{nullptr};
std::atomic<int> g_copies{0};

/// Counts the calls of memcpy() that copy from one place, for as long as it lives.
class Copies
{
public:
    explicit Copies(const void* source)
    {
        g_copies = 0;
        g_copiedFrom = source;
    }
    ~Copies() { g_copiedFrom = nullptr; }
    Copies(const Copies&) = delete;
    Copies& operator=(const Copies&) = delete;

    int count() const { return g_copies; }
};

} // namespace

/// In front of the C library's, for the library under test, too.
extern "C" void* memcpy(void* destination, const void* source, std::size_t count)
{
    if (source == g_copiedFrom)
        ++g_copies;
    auto* to = static_cast<volatile U8*>(destination); // which the compiler turns into no call of memcpy()
    for (const U8* from = static_cast<const U8*>(source); count > 0; --count)
        *to++ = *from++;
    return destination;
}

namespace {

/// With logging off: the console at its default level and on a success, the drivers' log switched off.
class AllocationTest : public ::testing::TestWithParam<DriverOperation>
{
protected:
    AllocationTest()
    {
        log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    }

    int allocationsOf(AuthChipDriver& driver)
    {
        const allocations::Counter counter;
        EXPECT_EQ(0, GetParam().call(driver));
        return counter.count();
    }

    Journal m_journal;
    UncountedBus m_bus{m_journal};
};

using Allocation20BTest = AllocationTest;
using Allocation30Test = AllocationTest;

TEST_P(Allocation20BTest, OnlyTheBufferOfI2cWriteAndTheAnswerAreAllocated)
{
    arrangeHealthyChip(m_bus, false);
    AuthChipDriver20B driver;

    EXPECT_EQ(GetParam().allocations, allocationsOf(driver));
}

TEST_P(Allocation30Test, OnlyTheBufferOfI2cWriteAndTheAnswerAreAllocated)
{
    arrangeHealthyChip(m_bus, true);
    AuthChipDriver30 driver;

    EXPECT_EQ(GetParam().allocations, allocationsOf(driver));
}

const auto kName = [](const auto& operation) { return std::string(operation.param.name); };
INSTANTIATE_TEST_SUITE_P(Operations, Allocation20BTest, ::testing::ValuesIn(operations20B()), kName);
INSTANTIATE_TEST_SUITE_P(Operations, Allocation30Test, ::testing::ValuesIn(operations30()), kName);

/// What a message costs: a buffer of its size, and one copy of the data.
class MessageBufferTest : public OpenBusTest
{
protected:
    static constexpr int kLength = 211; // of which nothing else allocates or copies
};

TEST_F(MessageBufferTest, HasExactlyTheBytesOfTheRegisterAndTheData)
{
    const Bytes data = counting(kLength);
    m_bus.keepsNoJournal();
    m_journal.clear();
    for (const int size : {kLength, kLength + 1, kLength + 2}) {
        const allocations::Watch watch(static_cast<std::size_t>(size), m_journal);
        i2cWrite(0x20, kLength, data.data());
    }

    EXPECT_THAT(m_journal.all(), ElementsAre("malloc 212", "free 212"));
}

TEST_F(MessageBufferTest, TakesTheDataInOneCopy)
{
    const Bytes data = counting(kLength);
    m_bus.keepsNoJournal();
    const Copies copies(data.data());
    i2cWrite(0x20, kLength, data.data());

    EXPECT_EQ(1, copies.count());
}

/// A signature whose block malloc refuses; the kernel then refuses to read into null.
class MissingBlockTest : public OpenBusTest
{
protected:
    void expectThatTheReadDecides(AuthChipDriver& driver, bool protocol30, int length)
    {
        arrangeHealthyChip(m_bus, protocol30);
        // A length that nothing else allocates.
        m_bus.holds(0x11, {static_cast<U8>(length >> 8), static_cast<U8>(length & 0xff)}).failsReadsOf(0x12);
        const Bytes challenge = counting(32);
        U8 byte = 0;
        U8* response = &byte;
        int responseLength = 0;
        Error error = Success;
        {
            const allocations::Refusal refusal(static_cast<std::size_t>(length));
            error = driver.newSignature(challenge.data(), 32, &response, &responseLength);
        }

        EXPECT_EQ(ErrorI2C, error);
        EXPECT_EQ(nullptr, response);
        EXPECT_EQ(length, responseLength);
        const std::string read = "read " + std::to_string(length);
        EXPECT_THAT(m_bus.conversation(), ::testing::EndsWith("write 12; " + repeated(100, read) + "; unlock"));
    }
};

TEST_F(MissingBlockTest, TheResultOfMallocIsNotCheckedOn20B)
{
    AuthChipDriver20B driver;
    expectThatTheReadDecides(driver, false, 33333);
    EXPECT_EQ("ERROR Failed to read signature data", lines().back());
}

TEST_F(MissingBlockTest, TheResultOfMallocIsNotCheckedOn30)
{
    AuthChipDriver30 driver;
    expectThatTheReadDecides(driver, true, 33333);
    EXPECT_EQ("ERROR Failed to read challenge response data", lines().back());
}

} // namespace
