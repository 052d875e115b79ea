// Every failure of every operation, again and again: memory, descriptors, threads and semaphores end where they began.
// The environment variable AUTHCHIP_TEST_REPETITIONS says how often; the soak tests set it to 100000.

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <malloc.h>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <QtGlobal>

#include <abstractionlibrary/event.h>
#include <abstractionlibrary/globalmutex.h>
#include <abstractionlibrary/mutex.h>
#include <abstractionlibrary/queue.h>
#include <abstractionlibrary/tcpsocket.h>
#include <abstractionlibrary/thread.h>
#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/i2c.h>

#include "tests/support/allocations.h"
#include "tests/support/consolelog.h"
#include "tests/support/driverlog.h"
#include "tests/support/environmentvariable.h"
#include "tests/support/failures.h"
#include "tests/support/fakesockets.h"
#include "tests/support/instantdevice.h"
#include "tests/support/loopback.h"
#include "tests/support/nowhere.h"
#include "tests/support/operations.h"
#include "tests/support/ownsemaphores.h"
#include "tests/support/processcounts.h"
#include "tests/support/temporarydirectory.h"
#include "tests/support/uncountedbus.h"

using namespace VorelKestrel::ACD;
using namespace VorelKestrel::AL; // every class of it is tested here
using namespace testsupport;
using allocations::Living;
using allocations::Pause;
using allocations::Shortage;

namespace {

/// What a process has of everything that could grow.
struct Footprint
{
    static Footprint now(const FakeBus& bus)
    {
        const Living living = allocations::living();
        const Pause pause;
        const int semaphores = ownsemaphores::count();
        const std::size_t heap = mallinfo2().uordblks;
        return {living, heap, bus.openDescriptors().size(), descriptorCount(), threadCount(), semaphores};
    }

    Living living;
    std::size_t heap; // bytes in use as the allocator itself counts them, with the freed blocks that it holds ready
    std::size_t devices;
    int descriptors;
    int threads;
    int semaphores;
};

bool hasNotGrown(const Footprint& before, const Footprint& after)
{
    constexpr std::size_t kHeldReady = 4096; // at most; in a long run less than a byte each time
    return before.living == after.living && after.heap < before.heap + kHeldReady && before.devices == after.devices &&
           before.descriptors == after.descriptors && before.threads == after.threads &&
           before.semaphores == after.semaphores;
}

void PrintTo(const Footprint& footprint, std::ostream* out)
{
    *out << footprint.living << " (" << footprint.heap << " in the heap), " << footprint.devices << " devices, "
         << footprint.descriptors << " descriptors, " << footprint.threads << " threads, " << footprint.semaphores
         << " semaphores";
}

int repetitions()
{
    const char* const wanted = std::getenv("AUTHCHIP_TEST_REPETITIONS");
    return wanted != nullptr ? std::atoi(wanted) : 1000;
}

/// A bus without a journal, whose lock may be refused.
class ForgetfulBus : public UncountedBus
{
public:
    explicit ForgetfulBus(Journal& journal) : UncountedBus(journal) { keepsNoJournal(); }

    int changeSemaphore(int delta) override
    {
        if (m_lockError == 0)
            return UncountedBus::changeSemaphore(delta);
        errno = m_lockError;
        return -1;
    }

    int m_lockError = 0;
};

/// Every line of both logs is formatted, and none stored.
class NothingGrowsTest : public ::testing::Test
{
protected:
    NothingGrowsTest()
    {
        m_console.setLevel(9);
        m_log.keepNothing();
        m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    }

    void arrange(bool protocol30)
    {
        arrangeHealthyChip(m_bus, protocol30);
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    }

    static constexpr int kUntilAllIsSetUp = 100; // failures

    /// @p fail returns whether it failed as it should.
    void repeat(const std::function<bool()>& fail)
    {
        for (int i = 0; i < kUntilAllIsSetUp; ++i)
            ASSERT_TRUE(fail());
        Footprint::now(m_bus); // this is set up, too
        ASSERT_TRUE(fail());
        const Footprint before = Footprint::now(m_bus);
        for (int i = repetitions(); i > 0; --i)
            ASSERT_TRUE(fail());
        EXPECT_PRED2(hasNotGrown, before, Footprint::now(m_bus));
        EXPECT_FALSE(m_bus.isLocked());
    }

    Journal m_journal;
    ForgetfulBus m_bus{m_journal};
    ConsoleLog m_console{m_journal};
    Nowhere m_nowhere;
    DriverLog m_log{m_journal};
};

const auto kName = [](const auto& test) { return std::string(test.param.name); };

// --- what the chip, the bus or the caller's arguments make fail
// -------------------------------------------------------

class NothingGrowsInAFailureTest : public NothingGrowsTest, public ::testing::WithParamInterface<FailingCall>
{
protected:
    template<typename Driver>
    void repeatFailureOf(bool protocol30)
    {
        arrange(protocol30);
        GetParam().arrange(m_bus);
        Driver driver;
        repeat([&] { return GetParam().call(driver) != 0; });
    }
};

using NothingGrowsInAFailure20BTest = NothingGrowsInAFailureTest;
using NothingGrowsInAFailure30Test = NothingGrowsInAFailureTest;

TEST_P(NothingGrowsInAFailure20BTest, MemoryDescriptorsThreadsAndSemaphoresAreTheSameAfterManyFailures)
{
    repeatFailureOf<AuthChipDriver20B>(false);
}

TEST_P(NothingGrowsInAFailure30Test, MemoryDescriptorsThreadsAndSemaphoresAreTheSameAfterManyFailures)
{
    repeatFailureOf<AuthChipDriver30>(true);
}

INSTANTIATE_TEST_SUITE_P(Failures, NothingGrowsInAFailure20BTest, ::testing::ValuesIn(failures20B()), kName);
INSTANTIATE_TEST_SUITE_P(Failures, NothingGrowsInAFailure30Test, ::testing::ValuesIn(failures30()), kName);

// --- what throws -----------------------------------------------------------------------------------------------------

/// True if @p call throws, or succeeds without reaching what throws.
template<typename Exception, typename Call>
bool throws(const Call& call)
{
    try {
        call();
    } catch (const Exception&) {
        return true;
    }
    return false;
}

class NothingGrowsWithAnExceptionTest : public NothingGrowsTest, public ::testing::WithParamInterface<DriverOperation>
{
protected:
    template<typename Driver>
    void repeatExceptionsOf(bool protocol30)
    {
        arrange(protocol30);
        Driver driver;
        const auto call = [&] { GetParam().call(driver); };

        // Some operations log nothing themselves.
        m_log.answerHookWith([](const std::string&) -> std::string { throw std::runtime_error("hook"); });
        const bool isTraced = throws<std::runtime_error>(call);
        repeat([&] { return throws<std::runtime_error>(call) == isTraced; });

        m_log.answerHookWith([](const std::string& prettyFunction) { return prettyFunction; });
        m_log.beforeEachRecord([](const std::string& message) {
            if (message.compare(0, 5, "Enter") != 0) // in the middle: the bus is held
                throw std::runtime_error("appender");
        });
        repeat([&] { return throws<std::runtime_error>(call) == isTraced; });

        m_log.beforeEachRecord(nullptr);
        int allocation = 0;
        repeat([&] {
            const Shortage shortage(++allocation % 64 + 1, Shortage::Extent::One);
            throws<std::bad_alloc>(call);
            return true;
        });
    }
};

using NothingGrowsWithAnException20BTest = NothingGrowsWithAnExceptionTest;
using NothingGrowsWithAnException30Test = NothingGrowsWithAnExceptionTest;

TEST_P(NothingGrowsWithAnException20BTest, NothingIsLeftBehindByExceptionsOfTheHookTheAppenderAndTheAllocator)
{
    repeatExceptionsOf<AuthChipDriver20B>(false);
}

TEST_P(NothingGrowsWithAnException30Test, NothingIsLeftBehindByExceptionsOfTheHookTheAppenderAndTheAllocator)
{
    repeatExceptionsOf<AuthChipDriver30>(true);
}

INSTANTIATE_TEST_SUITE_P(Operations, NothingGrowsWithAnException20BTest, ::testing::ValuesIn(operations20B()), kName);
INSTANTIATE_TEST_SUITE_P(OtherOperations, NothingGrowsWithAnException20BTest,
                         ::testing::ValuesIn(operationsWithoutTransaction()), kName);
INSTANTIATE_TEST_SUITE_P(Operations, NothingGrowsWithAnException30Test, ::testing::ValuesIn(operations30()), kName);
INSTANTIATE_TEST_SUITE_P(OtherOperations, NothingGrowsWithAnException30Test,
                         ::testing::ValuesIn(operationsWithoutTransaction()), kName);

// --- the factory and the bus functions
// --------------------------------------------------------------------------------

class NothingGrowsInADetectionTest : public NothingGrowsTest
{
protected:
    static bool findsNothing()
    {
        return AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress) == nullptr;
    }

    /// Deliberate, as the factory never closes the device: each detection leaves it open, and nothing but that.
    /// @p fail returns whether it failed as it should.
    void repeatWithADescriptorLeftOpenEachTime(const std::function<bool()>& fail = findsNothing)
    {
        for (int i = 0; i < kUntilAllIsSetUp; ++i)
            ASSERT_TRUE(fail());
        Footprint::now(m_bus); // this is set up, too
        Footprint expected = Footprint::now(m_bus);
        for (int i = repetitions(); i > 0; --i)
            ASSERT_TRUE(fail());
        expected.devices += static_cast<std::size_t>(repetitions());
        Footprint after = Footprint::now(m_bus);
        after.heap = expected.heap; // the bus counts its devices there
        EXPECT_PRED2(hasNotGrown, expected, after);
        EXPECT_FALSE(m_bus.isLocked());
    }
};

TEST_F(NothingGrowsInADetectionTest, OfADeviceThatCannotBeOpened)
{
    m_bus.refusesToOpen(ENOENT);
    repeat(findsNothing);
}

TEST_F(NothingGrowsInADetectionTest, OfAnAddressThatIsTaken)
{
    m_bus.refusesAddress(EBUSY);
    repeat(findsNothing);
}

TEST_F(NothingGrowsInADetectionTest, OfAChipThatTakesNoRegisterButForTheDescriptorLeftOpenEachTime)
{
    m_bus.refusesRegister(0x00);
    repeatWithADescriptorLeftOpenEachTime();
}

TEST_F(NothingGrowsInADetectionTest, OfAChipThatCannotBeReadButForTheDescriptorLeftOpenEachTime)
{
    m_bus.failsReadsOf(0x00);
    repeatWithADescriptorLeftOpenEachTime();
}

TEST_F(NothingGrowsInADetectionTest, OfAChipThatIsNotSupportedButForTheDescriptorLeftOpenEachTime)
{
    for (const U8 version : {U8{1}, U8{2}, U8{4}}) {
        m_bus.holds(0x00, {version});
        repeatWithADescriptorLeftOpenEachTime();
    }
}

TEST_F(NothingGrowsInADetectionTest, ThatEndsWithAnExceptionButForTheDescriptorLeftOpenEachTime)
{
    m_bus.holds(0x00, {7});
    m_log.answerHookWith([](const std::string&) -> std::string { throw std::runtime_error("hook"); });
    repeatWithADescriptorLeftOpenEachTime([] { return throws<std::runtime_error>(findsNothing); });
}

TEST(FailedDetectionTest, LeavesADescriptorOfTheProcessOpenEachTime)
{
    constexpr int kDetections = 50;
    InstantDevice device; // its descriptors are real
    device.holds(0x00, {4});
    const Nowhere nowhere;
    const int before = descriptorCount();
    for (int i = 0; i < kDetections; ++i)
        EXPECT_EQ(nullptr, AuthChipFactory::getAuthChipDriverInstance(InstantDevice::kDevice, InstantDevice::kAddress));

    EXPECT_EQ(before + kDetections, descriptorCount());
}

TEST_F(NothingGrowsTest, FailedCallsOfTheBusFunctionsLeaveNothingBehind)
{
    m_bus.refusesToOpen(ENOENT);
    repeat([] { return i2cInit(FakeBus::kDevice, FakeBus::kAddress) == 1; });
    m_bus.refusesToOpen(0).refusesAddress(EBUSY);
    repeat([] { return i2cInit(FakeBus::kDevice, FakeBus::kAddress) == 1; });
    m_bus.refusesAddress(0);
    arrange(true);
    m_bus.refusesRegister(0x00).failsReadsOf(0x01).deliversOnly(0x02, 0).refusesData(0x20).takesOnly(0x21, 1);
    U8 bytes[4] = {};
    repeat([&] { return i2cRead(0x00, 1, bytes) == 0; });
    repeat([&] { return i2cRead(0x01, 1, bytes) == -1; });
    repeat([&] { return i2cRead(0x02, 1, bytes) == 0; });
    repeat([&] { return i2cWrite(0x20, 4, bytes) == -2; });
    repeat([&] { return i2cWrite(0x21, 4, bytes) == 0; });
    repeat([&] { return i2cWrite(0x21, -4, bytes) != -4; });
}

// --- the wrappers of the operating system
// -----------------------------------------------------------------------------

TEST_F(NothingGrowsTest, RefusedLocksLeaveNothingBehind)
{
    Mutex mutex;
    mutex.lock();
    repeat([&] { return !mutex.tryLock(); });
    mutex.unlock();
}

TEST_F(NothingGrowsTest, ALockBetweenProcessesThatTheSystemRefusesLeavesNothingBehind)
{
    GlobalMutex mutex;
    m_bus.m_lockError = EPERM;
    repeat([&] {
        mutex.lock();
        mutex.unlock();
        return true;
    });
}

TEST_F(NothingGrowsTest, LocksBetweenProcessesThatCannotBeMadeLeaveNothingBehind)
{
    const TemporaryDirectory directory;
    const EnvironmentVariable folder("TMPDIR", directory.path());
    ownsemaphores::refuse(ENOSPC);
    repeat([] {
        const GlobalMutex mutex;
        return true;
    });
    ownsemaphores::refuse(0);
    setenv("TMPDIR", "/dev/null", 1); // no folder for the key file
    repeat([] {
        const GlobalMutex mutex;
        return true;
    });
}

TEST_F(NothingGrowsTest, LocksBetweenProcessesThatAreMadeAndTakenAwayLeaveNothingBehind)
{
    const TemporaryDirectory directory;
    const EnvironmentVariable folder("TMPDIR", directory.path());
    repeat([] {
        GlobalMutex mutex;
        mutex.lock();
        mutex.unlock();
        return true;
    });
}

TEST_F(NothingGrowsTest, TimeoutsAndRefusalsOfEventsAndQueuesLeaveNothingBehind)
{
    int value = 0;
    EventVoid event;
    repeat([&] { return event.wait(0) == nullptr; });
    event.set(&value);
    repeat([&] { return !event.set(&value); });
    QueueVoid queue;
    repeat([&] {
        int timeout = 0;
        return queue.pop(timeout) == nullptr;
    });
}

TEST_F(NothingGrowsTest, SocketsThatCannotBeOpenedLeaveNothingBehind)
{
    const UnheardPort nobody;
    for (const char* const call : {"socket", "connect", "bind", "listen"}) {
        TCPClientSocket client;
        TCPServer server;
        const bool concernsServers = std::string(call) != "connect";
        repeat([&] {
            const Pause pause;
            FakeSockets sockets;
            sockets.fails(call, EACCES);
            return !(concernsServers ? server.listen(0) : client.connect(kLoopback, nobody.number()));
        });
    }
    TCPClientSocket client;
    repeat([&] { return !client.connect(kLoopback, nobody.number()); });
}

TEST_F(NothingGrowsTest, ConnectionsThatBreakLeaveNothingBehind)
{
    TCPServer server;
    TCPClientSocket client;
    client.connect(kLoopback, listenAtAFreePort(server));
    const std::unique_ptr<TCPSocket> accepted(server.accept());
    repeat([&] {
        const Pause pause;
        FakeSockets sockets;
        sockets.fails("accept", EMFILE).fails("send", EPIPE).answers("recv", 2);
        U32 value = 0;
        return server.accept() == nullptr && !client.sendU32(value) && !client.receiveU32(value);
    });
    accepted->close();
    repeat([&] {
        U8 value = 0;
        return !client.receiveU8(value); // the peer has closed
    });
    client.close();
    server.close();
}

class IdleThread : public Thread
{
public:
    void run() override {}
};

TEST_F(NothingGrowsTest, ThreadsThatCannotBeStartedLeaveNothingBehind)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {}); // Qt says it each time
    repeat([] {
        IdleThread thread;
        const Shortage shortage(1, Shortage::Extent::One); // the system's thread needs a block
        thread.start();
        const bool hasStarted = thread.isRunning();
        thread.join();
        return shortage.wasFelt() && !hasStarted;
    });
}

} // namespace
