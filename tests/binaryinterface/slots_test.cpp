// The virtual tables from outside: each operation is called by the number of its slot, as a compiled host calls it.

#include <cstdlib>
#include <memory>
#include <set>

#include <abstractionlibrary/thread.h>
#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/binaryinterface/vtable.h"
#include "tests/support/drivertest.h"
#include "tests/support/healthychip.h"

using namespace VorelKestrel;
using namespace testsupport;
using AL::U16;
using AL::U32;
using AL::U8;

namespace {

constexpr int kSuccess = 0;

/// A driver in the library's own class, on a chip that answers everything.
template<typename Driver>
class DriverSlotsTest : public OpenBusTest
{
protected:
    DriverSlotsTest() { arrangeHealthyChip(m_bus, std::is_same_v<Driver, ACD::AuthChipDriver30>); }

    /// Calls a slot whose result is an Error or a count, and returns what it did on the bus after the lock.
    template<typename... Arguments>
    std::string traffic(int expected, std::size_t slot, Arguments... arguments)
    {
        m_bus.forget();
        EXPECT_EQ(expected, callSlot<int>(*m_driver, slot, arguments...));
        return m_bus.conversation();
    }

    std::unique_ptr<ACD::AuthChipDriver> m_driver = std::make_unique<Driver>();
};

using Drivers = ::testing::Types<ACD::AuthChipDriver20B, ACD::AuthChipDriver30>;
TYPED_TEST_SUITE(DriverSlotsTest, Drivers);

TYPED_TEST(DriverSlotsTest, SlotsTwoToFiveReadTheVersions)
{
    U8 version = 0;
    EXPECT_EQ("lock; write 00; read 1; unlock", this->traffic(kSuccess, 2, &version));
    EXPECT_EQ("lock; write 01; read 1; unlock", this->traffic(kSuccess, 3, &version));
    EXPECT_EQ("lock; write 02; read 1; unlock", this->traffic(kSuccess, 4, &version));
    EXPECT_EQ("lock; write 03; read 1; unlock", this->traffic(kSuccess, 5, &version));
}

TYPED_TEST(DriverSlotsTest, SlotSixReadsTheDeviceId)
{
    U32 id = 0;
    EXPECT_EQ("lock; write 04; read 4; unlock", this->traffic(kSuccess, 6, &id));
}

TYPED_TEST(DriverSlotsTest, SlotSevenSignsAChallenge)
{
    const Bytes challenge = counting(32);
    U8* response = nullptr;
    int length = 0;
    EXPECT_THAT(this->traffic(kSuccess, 7, challenge.data(), 32, &response, &length),
                ::testing::HasSubstr("write 10 01"));
    EXPECT_LT(0, length);
    std::free(response);
}

TYPED_TEST(DriverSlotsTest, SlotsEightAndNineReadTheCertificate)
{
    int length = 0;
    EXPECT_EQ("lock; write 30; read 2; unlock", this->traffic(kSuccess, 8, &length));
    EXPECT_EQ(kCertificateLength, length);
    U8 page[5] = {};
    length = sizeof(page);
    EXPECT_EQ("lock; write 31; read 5; unlock", this->traffic(kSuccess, 9, &page[0], &length));
}

TYPED_TEST(DriverSlotsTest, SlotsTenAndElevenTellTheLimits)
{
    constexpr bool protocol30 = std::is_same_v<TypeParam, ACD::AuthChipDriver30>;
    int length = 0;
    callSlot<void>(*this->m_driver, 10, &length);
    EXPECT_EQ(protocol30 ? 64 : 128, length);
    callSlot<void>(*this->m_driver, 11, &length);
    EXPECT_EQ(protocol30 ? 32 : 20, length);
}

TYPED_TEST(DriverSlotsTest, SlotsTwelveAndThirteenMoveRawBytes)
{
    U8 data[3] = {1, 2, 3};
    const void* const bytes = data;
    EXPECT_EQ("lock; write 20 01 02 03; unlock", this->traffic(3, 12, U8{0x20}, bytes, 3));
    EXPECT_EQ("lock; write 31; read 3; unlock", this->traffic(3, 13, U8{0x31}, bytes, 3));
}

TYPED_TEST(DriverSlotsTest, SlotsFourteenToNineteenAreTheRegisterHelpers)
{
    U8 byte = 0;
    U16 word = 0;
    U32 doubleWord = 0;
    ACD::i2cStartTransaction();
    EXPECT_EQ("write 00; read 1", this->traffic(kSuccess, 14, 0x00, &byte));
    EXPECT_EQ("write 30; read 2", this->traffic(kSuccess, 15, 0x30, &word));
    EXPECT_EQ("write 04; read 4", this->traffic(kSuccess, 16, 0x04, &doubleWord));
    EXPECT_EQ("write 10 01", this->traffic(kSuccess, 17, 0x10, 1));
    EXPECT_EQ("write 20 00 14", this->traffic(kSuccess, 18, 0x20, 20));
    EXPECT_EQ("write 20 00 00 00 14", this->traffic(kSuccess, 19, 0x20, 20));
    ACD::i2cStopTransaction();
}

/// A host's own driver: its table is laid out by the header, and the library calls through it.
class HostsDriver : public ACD::AuthChipDriver20B
{
public:
    explicit HostsDriver(std::string& calls) : m_calls(calls) {}
    ~HostsDriver() override { m_calls += "destructor "; }

    ACD::Error readByte(int /*reg*/, U8& value) override
    {
        m_calls += "readByte ";
        value = 0x5a;
        return ACD::Success;
    }

private:
    std::string& m_calls;
};

class HostsDriverSlotsTest : public OpenBusTest
{};

TEST_F(HostsDriverSlotsTest, TheLibraryCallsAnOverriddenHelperThroughItsSlot)
{
    std::string calls;
    HostsDriver driver(calls);
    U8 version = 0;
    EXPECT_EQ(kSuccess, callSlot<int>(driver, 2, &version));
    EXPECT_EQ(0x5a, version);
    EXPECT_EQ("readByte ", calls);
}

TEST_F(HostsDriverSlotsTest, SlotZeroDestroysAndSlotOneDestroysAndFrees)
{
    std::string calls;
    alignas(HostsDriver) unsigned char memory[sizeof(HostsDriver)];
    callSlot<void>(*new (memory) HostsDriver(calls), 0);
    EXPECT_EQ("destructor ", calls);
    callSlot<void>(*new HostsDriver(calls), 1); // a leak if it does not free
    EXPECT_EQ("destructor destructor ", calls);
}

class HostsThread : public AL::Thread
{
public:
    explicit HostsThread(std::string& calls) : m_calls(calls) {}
    ~HostsThread() override { m_calls += "destructor "; }
    void run() override { m_calls += "run "; }

private:
    std::string& m_calls;
};

TEST(ThreadSlotsTest, SlotsZeroAndOneAreTheDestructorsAndSlotTwoIsRun)
{
    std::string calls;
    alignas(HostsThread) unsigned char memory[sizeof(HostsThread)];
    HostsThread& thread = *new (memory) HostsThread(calls);
    callSlot<void>(thread, 2);
    callSlot<void>(thread, 0);
    callSlot<void>(*new HostsThread(calls), 1);
    EXPECT_EQ("run destructor destructor ", calls);
}

TEST(ThreadSlotsTest, TheLibraryRunsAHostsThreadThroughItsSlot)
{
    std::string calls;
    HostsThread thread(calls);
    thread.start();
    thread.join();
    EXPECT_EQ("run ", calls);
}

} // namespace
