// What every operation does when memory runs out: each of its allocations is refused in turn, the library's own and
// those that Qt, log4cplus and the C++ library make on its way.

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <abstractionlibrary/debugstdiologger.h>
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

#include "common/lockkey.h"
#include "tests/support/allocations.h"
#include "tests/support/consolelog.h"
#include "tests/support/driverlog.h"
#include "tests/support/environmentvariable.h"
#include "tests/support/failures.h"
#include "tests/support/loopback.h"
#include "tests/support/nowhere.h"
#include "tests/support/operations.h"
#include "tests/support/privatelocks.h"
#include "tests/support/processcounts.h"
#include "tests/support/temporarydirectory.h"
#include "tests/support/uncountedbus.h"

using namespace VorelKestrel::ACD;
using namespace VorelKestrel::AL; // every class of it is tested here
using namespace testsupport;
using allocations::Counter;
using allocations::Living;
using allocations::Shortage;

namespace {

enum class Logging
{
    Silent,
    Everything
};

/// What one run of an operation did.
struct Attempt
{
    enum class End
    {
        Returned,
        ThrewBadAlloc,
        ThrewAnother
    };
    End end;
    int result; // of a run that returned
    int locks;
    int unlocks;
};

/// The report of a process: a run with a refused allocation, one without, and the leftovers of both.
struct Report
{
    bool wasFelt; // an allocation was refused
    Attempt refused;
    Attempt next;
    Living living;
    int descriptors;
    int busDescriptors;
};

/// A joined thread needs a moment to free everything.
void waitForThreadsToEnd(int threadsBefore)
{
    while (threadCount() > threadsBefore)
        std::this_thread::yield();
}

constexpr int kNever = 1 << 30; // more allocations than any operation makes

using Call = std::function<int()>; ///< 0 is the result without a refusal

/// A healthy chip behind a bus, both logs, and operations that run in processes of their own, so that each run is the
/// first: what is set up only once is part of it.
class AllocationFailureTest : public ::testing::Test
{
protected:
    AllocationFailureTest() { m_log.keepNothing(); }

    void arrange(bool protocol30)
    {
        arrangeHealthyChip(m_bus, protocol30);
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    }

    /// Refuses the allocations of @p call one after another, until a run has no refusal.
    void refuseEachAllocation(const Call& call, int resultWithoutBlock = 0)
    {
        for (const auto logging : {Logging::Silent, Logging::Everything}) {
            setLogging(logging);
            for (const auto extent : {Shortage::Extent::One, Shortage::Extent::AllFromThere}) {
                SCOPED_TRACE(std::string(logging == Logging::Silent ? "without" : "with") + " log lines, " +
                             (extent == Shortage::Extent::One ? "one allocation" : "every allocation from there on"));
                refuseEachAllocation(call, resultWithoutBlock, logging, extent);
            }
        }
    }

    UncountedBus& bus() { return m_bus; }

    int m_firstThatEndsTheProcess = kNever; // of the allocations
    bool m_needsEveryBlock = false;         // but for those of log lines
    int m_refusals = 0;                     // that were felt
    // What a refusal may lose, at most.
    int m_lostBusDescriptors = 0;
    int m_lostBlocks = 0;

private:
    void setLogging(Logging logging)
    {
        m_console.setLevel(logging == Logging::Silent ? 0 : 9);
        m_log.setLevel(logging == Logging::Silent ? log4cplus::OFF_LOG_LEVEL : log4cplus::TRACE_LOG_LEVEL);
        // Longer than a string without an allocation.
        m_log.answerHookWith([](const std::string& prettyFunction) { return prettyFunction; });
    }

    void refuseEachAllocation(const Call& call, int resultWithoutBlock, Logging logging, Shortage::Extent extent)
    {
        const auto undisturbed = report(call, kNever, extent);
        ASSERT_TRUE(undisturbed && undisturbed->refused.end == Attempt::End::Returned &&
                    undisturbed->refused.result == 0);
        for (int number = 1;; ++number) {
            SCOPED_TRACE("refused: " + std::to_string(number));
            const auto after = report(call, number, extent);
            if (!after) {
                ASSERT_GE(number, m_firstThatEndsTheProcess);
                continue;
            }
            if (!after->wasFelt)
                return;
            ASSERT_NE(Attempt::End::ThrewAnother, after->refused.end);
            ++m_refusals;
            if (m_needsEveryBlock && logging == Logging::Silent) {
                EXPECT_FALSE(after->refused.end == Attempt::End::Returned && after->refused.result == 0);
            }
            if (after->refused.end == Attempt::End::Returned && after->refused.result != 0) {
                EXPECT_EQ(resultWithoutBlock, after->refused.result);
            }
            EXPECT_EQ(after->refused.locks, after->refused.unlocks);
            EXPECT_LE(after->refused.locks, undisturbed->refused.locks);

            EXPECT_EQ(Attempt::End::Returned, after->next.end);
            EXPECT_EQ(0, after->next.result);
            // The blocks: how large the streams' buffers are depends on how they grew.
            EXPECT_LE(after->living.blocks - undisturbed->living.blocks, m_lostBlocks);
            EXPECT_EQ(undisturbed->descriptors, after->descriptors);
            EXPECT_LE(after->busDescriptors - undisturbed->busDescriptors, m_lostBusDescriptors);
            if (HasFailure())
                return;
        }
    }

    /// Runs @p call twice in a child process, the first time with the refusal; nothing if the process died.
    std::optional<Report> report(const Call& call, int number, Shortage::Extent extent)
    {
        auto* const shared = static_cast<Report*>(
            mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        std::cout.flush();
        const pid_t process = fork();
        if (process == 0) {
            shared->refused = attempt(call, number, extent, shared->wasFelt);
            bool felt = false;
            for (int i = 0; i < 2; ++i) // twice: what the first one keeps for the next time is there in any case
                shared->next = attempt(call, kNever, extent, felt);
            shared->living = allocations::living();
            shared->descriptors = descriptorCount();
            shared->busDescriptors = static_cast<int>(m_bus.openDescriptors().size());
            _exit(EXIT_SUCCESS);
        }
        int status = 0;
        waitpid(process, &status, 0);
        const Report report = *shared;
        munmap(shared, sizeof(Report));
        if (status != 0)
            return std::nullopt;
        return report;
    }

    Attempt attempt(const Call& call, int number, Shortage::Extent extent, bool& wasFelt)
    {
        forget();
        const int threads = threadCount();
        Attempt attempt = {Attempt::End::Returned, 0, 0, 0};
        const Shortage shortage(number, extent);
        try {
            attempt.result = call();
        } catch (const std::bad_alloc&) {
            attempt.end = Attempt::End::ThrewBadAlloc;
        } catch (...) {
            attempt.end = Attempt::End::ThrewAnother;
        }
        wasFelt = shortage.wasFelt();
        const allocations::Pause pause;
        waitForThreadsToEnd(threads);
        for (const auto& text : m_journal.only(Journal::Kind::Call)) {
            attempt.locks += text == "lock" ? 1 : 0;
            attempt.unlocks += text == "unlock" ? 1 : 0;
        }
        return attempt;
    }

    void forget()
    {
        const allocations::Pause pause;
        m_bus.forget();
    }

    Journal m_journal;
    UncountedBus m_bus{m_journal};
    ConsoleLog m_console{m_journal};
    Nowhere m_nowhere;
    DriverLog m_log{m_journal};
};

// --- the drivers -----------------------------------------------------------------------------------------------------

class AllocationFailureOperationTest : public AllocationFailureTest,
                                       public ::testing::WithParamInterface<DriverOperation>
{
protected:
    template<typename Driver>
    void refuseEachAllocationOf(bool protocol30)
    {
        arrange(protocol30);
        Driver driver;
        m_needsEveryBlock = true;
        refuseEachAllocation([&] { return GetParam().call(driver); }, ErrorI2C);
        // Without log lines only these, with them many more.
        EXPECT_GE(m_refusals, 4 * GetParam().allocations);
    }
};

using AllocationFailure20BTest = AllocationFailureOperationTest;
using AllocationFailure30Test = AllocationFailureOperationTest;

TEST_P(AllocationFailure20BTest, ReleasesTheBusLosesNothingAndTheNextCallSucceeds)
{
    refuseEachAllocationOf<AuthChipDriver20B>(false);
}

TEST_P(AllocationFailure30Test, ReleasesTheBusLosesNothingAndTheNextCallSucceeds)
{
    refuseEachAllocationOf<AuthChipDriver30>(true);
}

const auto kName = [](const auto& test) { return std::string(test.param.name); };
INSTANTIATE_TEST_SUITE_P(Operations, AllocationFailure20BTest, ::testing::ValuesIn(operations20B()), kName);
INSTANTIATE_TEST_SUITE_P(OtherOperations, AllocationFailure20BTest, ::testing::ValuesIn(operationsWithoutTransaction()),
                         kName);
INSTANTIATE_TEST_SUITE_P(Operations, AllocationFailure30Test, ::testing::ValuesIn(operations30()), kName);
INSTANTIATE_TEST_SUITE_P(OtherOperations, AllocationFailure30Test, ::testing::ValuesIn(operationsWithoutTransaction()),
                         kName);

// --- what is not passed on ------------------------------------------------------------------------------------------

class LineWithoutMemoryTest : public ::testing::Test
{
protected:
    LineWithoutMemoryTest()
    {
        arrangeHealthyChip(m_bus, true);
        i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    }

    Journal m_journal;
    UncountedBus m_bus{m_journal};
    ConsoleLog m_console{m_journal};
    Nowhere m_nowhere;
    DriverLog m_log{m_journal};
    AuthChipDriver30 m_driver;
};

/// The streams of the C++ library do not report a missing block. The line is then cut, and the operation continues.
TEST_F(LineWithoutMemoryTest, ALineOfTheDriversIsCutWhereTheStreamHasNoRoomLeftAndTheCallSucceeds)
{
    U32 id = 0;
    m_driver.getDeviceID(id);
    const std::string whole = m_log.records().back().message;
    bool wasCut = false;
    int number = 0;
    for (bool wasFelt = true; wasFelt;) {
        const std::size_t recordsBefore = m_log.records().size();
        Error error = ErrorInvalid;
        ++number;
        std::thread([&] { // a new one each time: a thread's stream keeps the room that it once had
            const Shortage shortage(number, Shortage::Extent::One);
            try {
                error = m_driver.getDeviceID(id);
            } catch (const std::bad_alloc&) {}
            wasFelt = shortage.wasFelt();
        })
            .join();
        if (error != Success || m_log.records().size() == recordsBefore)
            continue;
        const std::string message = m_log.records().back().message;
        EXPECT_EQ(whole.substr(0, message.size()), message);
        wasCut = wasCut || message.size() < whole.size();
    }
    EXPECT_TRUE(wasCut);
    EXPECT_EQ(whole, m_log.records().back().message); // and the next line is whole
}

TEST_F(LineWithoutMemoryTest, ALineOfTheConsoleNeedsNoMemoryOfTheLibrary)
{
    m_console.setLevel(9);
    U8 version = 0;
    m_driver.getDeviceVersion(version);
    const allocations::Counter counter;
    m_driver.getDeviceVersion(version);

    EXPECT_EQ(0, counter.count());
}

// --- the ways in which operations fail: their error lines allocate, too ----------------------------------------------

class AllocationFailureInAFailureTest : public AllocationFailureTest, public ::testing::WithParamInterface<FailingCall>
{
protected:
    template<typename Driver>
    void refuseEachAllocationOf(bool protocol30)
    {
        arrange(protocol30);
        GetParam().arrange(bus());
        Driver driver;
        refuseEachAllocation([&] { return GetParam().call(driver) != 0 ? 0 : 1; });
    }
};

using AllocationFailureInAFailure20BTest = AllocationFailureInAFailureTest;
using AllocationFailureInAFailure30Test = AllocationFailureInAFailureTest;

TEST_P(AllocationFailureInAFailure20BTest, ReleasesTheBusAndLosesNothing)
{
    refuseEachAllocationOf<AuthChipDriver20B>(false);
}

TEST_P(AllocationFailureInAFailure30Test, ReleasesTheBusAndLosesNothing)
{
    refuseEachAllocationOf<AuthChipDriver30>(true);
}

INSTANTIATE_TEST_SUITE_P(Failures, AllocationFailureInAFailure20BTest, ::testing::ValuesIn(failures20B()), kName);
INSTANTIATE_TEST_SUITE_P(Failures, AllocationFailureInAFailure30Test, ::testing::ValuesIn(failures30()), kName);

// --- where the bus is given back -------------------------------------------------------------------------------------

/// A bus whose lock reports that it could not be released; Qt then formats a text that is not read.
class ComplainingBus : public UncountedBus
{
public:
    using UncountedBus::UncountedBus;

    int changeSemaphore(int delta) override
    {
        const int result = UncountedBus::changeSemaphore(delta);
        if (delta < 0)
            return result;
        errno = EPERM;
        return -1;
    }
};

TEST(AllocationFailureAtTheEndOfATransactionTest, LeavesTheOperationWithTheBusReleased)
{
    Journal journal;
    ComplainingBus bus(journal);
    arrangeHealthyChip(bus, true);
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    AuthChipDriver30 driver;
    U8 version = 0;
    int number = 0;
    for (bool wasFelt = true; wasFelt; ++number) {
        const Shortage shortage(number + 1, Shortage::Extent::One);
        bool hasThrown = false;
        try {
            EXPECT_EQ(Success, driver.getDeviceVersion(version));
        } catch (const std::bad_alloc&) {
            hasThrown = true;
        }
        wasFelt = shortage.wasFelt();
        EXPECT_EQ(wasFelt, hasThrown);
        EXPECT_FALSE(bus.isLocked());
    }
    EXPECT_GT(number, 1); // Qt did allocate
}

// --- the factory, the bus functions and the drivers' constructors
// -----------------------------------------------------

class AllocationFailureOutsideOfADriverTest : public AllocationFailureTest
{
protected:
    static int detect()
    {
        return AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress) != nullptr ? 0 : 1;
    }
    /// The factory leaves the device open, also when an exception leaves it.
    void refuseEachAllocationOfADetection(U8 deviceVersion, int result)
    {
        bus().holds(0x00, {deviceVersion});
        m_lostBusDescriptors = 1;
        refuseEachAllocation([=] { return detect() == result ? 0 : 1; });
    }
};

TEST_F(AllocationFailureOutsideOfADriverTest, DetectingAChipOf20BReleasesTheBusAndTheNextCallSucceeds)
{
    refuseEachAllocationOfADetection(3, 0);
}

TEST_F(AllocationFailureOutsideOfADriverTest, DetectingAChipOf30ReleasesTheBusAndTheNextCallSucceeds)
{
    refuseEachAllocationOfADetection(7, 0);
}

TEST_F(AllocationFailureOutsideOfADriverTest, RefusingAChipReleasesTheBus)
{
    for (const U8 version : {U8{1}, U8{2}, U8{4}})
        refuseEachAllocationOfADetection(version, 1);
}

TEST_F(AllocationFailureOutsideOfADriverTest, AFailedDetectionReleasesTheBus)
{
    bus().failsReadsOf(0x00);
    refuseEachAllocationOfADetection(7, 1);
    bus().refusesRegister(0x00);
    refuseEachAllocationOfADetection(7, 1);
    bus().refusesAddress(EBUSY);
    refuseEachAllocationOfADetection(7, 1);
    bus().refusesToOpen(ENOENT);
    refuseEachAllocationOfADetection(7, 1);
}

TEST_F(AllocationFailureOutsideOfADriverTest, TheBusFunctionsLoseNothing)
{
    bus().holds(0x00, {7});
    refuseEachAllocation([] {
        U8 byte = 0;
        if (i2cInit(FakeBus::kDevice, FakeBus::kAddress) != 0)
            return 1;
        i2cStartTransaction();
        const bool wasRead = i2cRead(0x00, sizeof(byte), &byte) == sizeof(byte);
        i2cStopTransaction();
        i2cClose();
        return wasRead ? 0 : 1;
    });
}

TEST_F(AllocationFailureOutsideOfADriverTest, WritingToTheBusPassesTheExceptionOn)
{
    arrange(true);
    refuseEachAllocation([] {
        const U8 bytes[2] = {};
        return i2cWrite(0x20, sizeof(bytes), bytes) - 2;
    });
}

TEST_F(AllocationFailureOutsideOfADriverTest, ConstructingADriverLosesNothing)
{
    refuseEachAllocation([] {
        delete new AuthChipDriver20B;
        delete new AuthChipDriver30;
        return 0;
    });
}

// --- the console logger and the wrappers of the operating system
// ------------------------------------------------------

class AllocationFailureOfAWrapperTest : public AllocationFailureTest
{};

/// Closes open descriptors at the end of the scope.
template<typename Socket>
class CloseAtEnd
{
public:
    explicit CloseAtEnd(Socket& socket) : m_socket(socket) {}
    ~CloseAtEnd() { m_socket.close(); }
    CloseAtEnd(const CloseAtEnd&) = delete;
    CloseAtEnd& operator=(const CloseAtEnd&) = delete;

private:
    Socket& m_socket;
};

TEST_F(AllocationFailureOfAWrapperTest, AskingForALoggerRegistersItWholeOrNotAtAll)
{
    refuseEachAllocation([] {
        const std::string name = "a name that is longer than what a string holds without an allocation";
        DebugStdioLogger* const logger = DebugStdioLogger::getInstance(name);
        return logger != nullptr && logger == DebugStdioLogger::getInstance(name) ? 0 : 1;
    });
}

TEST_F(AllocationFailureOfAWrapperTest, AMutexLosesNothing)
{
    refuseEachAllocation([] {
        Mutex mutex;
        mutex.lock();
        const bool wasFree = mutex.tryLock();
        mutex.unlock();
        return wasFree ? 1 : 0;
    });
}

int takeAndGiveBack()
{
    GlobalMutex mutex;
    mutex.lock();
    mutex.unlock();
    return 0;
}

TEST_F(AllocationFailureOfAWrapperTest, AGlobalMutexLosesNothing)
{
    const PrivateLocks locks; // one that another process has made
    // Qt's: the path that it looked up while it made the key (QDir::tempPath), when there is no block for its copy.
    m_lostBlocks = 1;
    refuseEachAllocation(takeAndGiveBack);
}

/// What a process has left in the folder that ended before it took its lock away.
void removeLocks(const std::string& folder)
{
    const allocations::Pause pause;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        semctl(semget(ftok(file.path().c_str(), VorelKestrel::kLockKeyProject), 0, 0), 0, IPC_RMID);
        std::filesystem::remove(file);
    }
}

TEST_F(AllocationFailureOfAWrapperTest, AGlobalMutexThatMadeTheSemaphoreEndsTheProcessWhereItCannotTakeItAway)
{
    const TemporaryDirectory directory; // where no lock is yet
    const EnvironmentVariable folder("TMPDIR", directory.path());
    takeAndGiveBack(); // the first time sets more up
    const Counter counter;
    auto mutex = std::make_unique<GlobalMutex>();
    // Qt's destructor removes the key file by a path that it makes for it, and destructors do not throw.
    m_firstThatEndsTheProcess = counter.count(); // in there the lock itself needs no block
    mutex.reset();
    m_lostBlocks = 1;
    refuseEachAllocation([&] {
        removeLocks(directory.path());
        return takeAndGiveBack();
    });
    removeLocks(directory.path());
}

TEST_F(AllocationFailureOfAWrapperTest, AnEventLosesNothing)
{
    refuseEachAllocation([] {
        int value = 0;
        EventVoid event;
        return event.set(&value) && !event.set(&value) && event.wait(0) == &value && event.wait(1) == nullptr ? 0 : 1;
    });
}

TEST_F(AllocationFailureOfAWrapperTest, AQueueLosesNothing)
{
    refuseEachAllocation([] {
        int value = 0;
        int timeout = 1;
        QueueVoid queue;
        try {
            queue.push(&value);
        } catch (const std::bad_alloc&) {
            int none = 0;
            if (queue.pop(none) != nullptr) // nothing has been queued
                return 2;
            throw;
        }
        return queue.pop(timeout) == &value && queue.pop(timeout) == nullptr ? 0 : 1;
    });
}

TEST_F(AllocationFailureOfAWrapperTest, SocketsAndServersLoseNoDescriptor)
{
    refuseEachAllocation([] {
        TCPServer server;
        TCPClientSocket client;
        const U16 port = listenAtAFreePort(server);
        const CloseAtEnd<TCPServer> closeServer(server);
        if (!client.connect(kLoopback, port))
            return 1;
        const CloseAtEnd<TCPClientSocket> closeClient(client);
        const std::unique_ptr<TCPSocket> accepted(server.accept());
        const CloseAtEnd<TCPSocket> closeAccepted(*accepted);
        U32 received = 0;
        return client.sendU32(7) && accepted->receiveU32(received) && received == 7 ? 0 : 1;
    });
}

class NotingThread : public Thread
{
public:
    ~NotingThread() override { join(); }
    void run() override { m_hasRun = true; }

    bool m_hasRun = false;
};

TEST_F(AllocationFailureOfAWrapperTest, AThreadLosesNothingAndRunsOrDoesNot)
{
    // The first two are those of the thread and of QThread. Whatever is missing inside Qt's constructors after that
    // ends the process there: what they call promises not to throw.
    m_firstThatEndsTheProcess = 3;
    refuseEachAllocation(
        [] {
            NotingThread thread;
            thread.start();
            thread.join();
            return thread.m_hasRun ? 0 : 1;
        },
        1);
}

} // namespace
