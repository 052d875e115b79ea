// What the lock between processes does not do, and what a seed mends of it. The lock is Qt's, and stays as it is.

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <abstractionlibrary/globalmutex.h>

#include "common/scopeddescriptor.h"
#include "tests/support/anotheruser.h"
#include "tests/support/childprocess.h"
#include "tests/support/interposition.h"
#include "tests/support/temporarydirectory.h"
#include "tests/tool/lock/lockfolder.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;
using namespace testsupport;
using VorelKestrel::AL::GlobalMutex;

namespace {

constexpr int kVisitors = 8; // of a round

/// Counts of a test and its children.
struct Counts
{
    std::atomic<int> inside{0};
    std::atomic<int> intruders{0};                      // who came in while another was there
    std::array<std::atomic<bool>, kVisitors> waiting{}; // who is in lock()
    std::atomic<unsigned> opened{0};
    std::array<int, 1024> semaphores{}; // which were opened
};

Counts* g_counts = nullptr;      // what a visitor counts in
int g_refusal = 0;               // errno, if the system gives no semaphores
bool g_losesWhatItFinds = false; // this process, each time that it opens a semaphore of another's

} // namespace

extern "C" {

int spelledSemget(key_t key, int count, int flags) SPELLING("semget");

int spelledSemget(key_t key, int count, int flags)
{
    static auto* const next = nextDefinition<int(key_t, int, int)>("semget");
    if (g_refusal != 0) {
        errno = g_refusal;
        return -1;
    }
    const int semaphore = next(key, count, flags);
    if (semaphore < 0 && errno == EEXIST && g_losesWhatItFinds) {
        semctl(next(key, 0, 0), 0, IPC_RMID); // as if its creator exited now
        errno = EEXIST;
    }
    if (semaphore >= 0 && g_counts != nullptr)
        g_counts->semaphores.at(g_counts->opened++) = semaphore;
    return semaphore;
}

} // extern "C"

namespace {

class SharedCounts
{
public:
    SharedCounts()
        : m_counts(new (mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                       Counts)
    {}
    ~SharedCounts() { munmap(m_counts, sizeof(Counts)); }
    SharedCounts(const SharedCounts&) = delete;
    SharedCounts& operator=(const SharedCounts&) = delete;

    Counts* get() const { return m_counts; }
    Counts* operator->() const { return m_counts; }

private:
    Counts* m_counts;
};

/// A process that does with the lock what a test tells it. It exits in the ordinary way, through the destructor.
class Visitor
{
public:
    /// @p before is done by the process before it opens the lock.
    explicit Visitor(const std::function<void()>& before = [] {}) : m_process([this, before] { obey(before); })
    {
        m_done.hear();
    }
    ~Visitor() { exit(); }
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

    /// Returns when it is inside.
    void lock() const
    {
        m_orders.say(kLock);
        m_done.hear();
    }
    /// Returns when it waits.
    void lockInVain() const
    {
        m_orders.say(kLock);
        m_started.hear();
        m_process.waitUntilItSleeps();
        EXPECT_FALSE(m_done.hasWord());
    }
    void waitUntilInside() const { m_done.hear(); }
    void unlock() const
    {
        m_orders.say(kUnlock);
        m_done.hear();
    }
    void exit()
    {
        if (std::exchange(m_isGone, true))
            return;
        m_orders.say(kExit);
        m_process.join();
    }

private:
    static constexpr char kLock = 'l';
    static constexpr char kUnlock = 'u';
    static constexpr char kExit = 'x';

    void obey(const std::function<void()>& before) const
    {
        before();
        GlobalMutex mutex;
        m_done.say();
        for (char order = m_orders.hear(); order != kExit; order = m_orders.hear()) {
            if (order == kLock) {
                m_started.say();
                mutex.lock();
            } else {
                mutex.unlock();
            }
            m_done.say();
        }
    }

    const Channel m_orders;
    const Channel m_started;
    const Channel m_done;
    ChildProcess m_process; // after the channels
    bool m_isGone = false;
};

class LockLimitsTest : public testing::Test
{
protected:
    /// While the result lives, no new file gets the number of the removed one, which the key was made from.
    ScopedDescriptor removeKeyFile() const
    {
        ScopedDescriptor file(open(m_folder.keyFile().c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(0, unlink(m_folder.keyFile().c_str()));
        return file;
    }

    LockFolder m_folder;
};

TEST_F(LockLimitsTest, WhenTheCreatorExitsWhileAnotherHoldsAThirdGetsInAndTwoTokensRemain)
{
    Visitor creator;
    const Visitor holder;
    holder.lock();
    creator.exit();
    const Visitor third;
    third.lock(); // returns, though the holder has not unlocked

    third.unlock();
    EXPECT_EQ(1, m_folder.look().value);
    holder.unlock();
    EXPECT_EQ(2, m_folder.look().value);
    EXPECT_EQ(LockCondition::TooMany, m_folder.look().condition);

    const Visitor fourth;
    third.lock();
    fourth.lock(); // and so it goes on
    EXPECT_EQ(0, m_folder.look().value);
}

TEST_F(LockLimitsTest, WhenTheCreatorExitsWhileAnotherOpensTheLockThereIsNoTokenAndAllWaitForEver)
{
    const Visitor creator;
    const Visitor second([] { g_losesWhatItFinds = true; });
    second.lockInVain(); // what it found was gone, and the one that it made has no token
    const Visitor third;
    third.lockInVain();

    EXPECT_EQ(0, m_folder.look().value);
    EXPECT_EQ(LockCondition::Lost, m_folder.look().condition);
    m_folder.giveToken();
    second.waitUntilInside();
    second.unlock();
    third.waitUntilInside();
    third.unlock();
}

TEST_F(LockLimitsTest, WithASeedAThirdWaitsWhenTheFirstExitsWhileAnotherHolds)
{
    m_folder.seed();
    Visitor first;
    const Visitor holder;
    holder.lock();
    first.exit();
    const Visitor third;
    third.lockInVain();

    holder.unlock();
    third.waitUntilInside();
    third.unlock();
    EXPECT_EQ(1, m_folder.look().value);
}

TEST_F(LockLimitsTest, AnotherUserCannotOpenTheLockGetsInAndNothingIsReported)
{
    if (!canBecomeNobody())
        GTEST_SKIP() << "this process cannot become one of another user";
    const Visitor holder;
    holder.lock();
    const Channel words; // what the other's standard output and error get
    const Visitor other([&] {
        becomeNobody();
        words.takeOutputs();
    });
    other.lock(); // returns, though the holder has not unlocked

    EXPECT_FALSE(words.hasWord());
    EXPECT_EQ(0, m_folder.look().value);
    other.unlock();
    EXPECT_EQ(0, m_folder.look().value);
}

TEST_F(LockLimitsTest, WithASeedForItsGroupAnotherUserWaits)
{
    if (!canBecomeNobody())
        GTEST_SKIP() << "this process cannot become one of another user";
    m_folder.seed(kNogroup);
    const Visitor holder;
    holder.lock();
    const Visitor other(becomeNobody);
    other.lockInVain();

    holder.unlock();
    other.waitUntilInside();
    EXPECT_EQ(0, m_folder.look().value);
    other.unlock();
    EXPECT_EQ(1, m_folder.look().value);
}

TEST_F(LockLimitsTest, AnotherTmpdirGivesASecondLock)
{
    const Visitor holder;
    holder.lock();
    const TemporaryDirectory directory;
    const Visitor other([&] { setenv("TMPDIR", directory.path().c_str(), 1); });

    other.lock(); // returns, though the holder has not unlocked
    EXPECT_NE(m_folder.look().semaphore, lookAtLock(lockKeyFile(directory.path())).semaphore);
}

TEST_F(LockLimitsTest, ARemovedKeyFileGivesASecondLock)
{
    const Visitor holder;
    holder.lock();
    const int semaphore = m_folder.look().semaphore;
    const auto keptNumber = removeKeyFile();
    const Visitor other;

    other.lock(); // returns, though the holder has not unlocked
    EXPECT_NE(semaphore, m_folder.look().semaphore);
}

TEST_F(LockLimitsTest, AlsoASeededLockIsSecondToOneWhoseKeyFileWasRemoved)
{
    m_folder.seed();
    const Visitor holder;
    holder.lock();
    const int seeded = m_folder.look().semaphore;
    const auto keptNumber = removeKeyFile();
    const Visitor other;

    other.lock(); // returns, though the holder has not unlocked
    EXPECT_NE(seeded, m_folder.look().semaphore);
    EXPECT_EQ(0, m_folder.look().value);
    EXPECT_EQ(0, semctl(seeded, 0, GETVAL)); // it is there, and held
}

/// Rounds of processes that live for a single visit to the lock, as commands in a script do.
class LockObstacleTest : public testing::Test
{
protected:
    ~LockObstacleTest() override { g_refusal = 0; }

    LockFolder m_folder;
};

TEST_F(LockObstacleTest, IsNotThereWhereALockCanBeMade)
{
    EXPECT_EQ(LockObstacle::None, m_folder.look().obstacle);
}

TEST_F(LockObstacleTest, IsASystemWithoutSemaphores)
{
    for (const int error : {ENOSYS, EPERM}) { // of a kernel without them, and of a filter of system calls
        g_refusal = error;
        EXPECT_EQ(LockObstacle::NoSemaphores, m_folder.look().obstacle) << error;
    }
    g_refusal = 0;
    m_folder.makeKeyFile();
    g_refusal = ENOSYS;
    EXPECT_EQ(LockObstacle::NoSemaphores, m_folder.look().obstacle);
}

TEST_F(LockObstacleTest, IsAProcessWithoutDescriptors)
{
    rlimit before = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const LockObstacle obstacle = m_folder.look().obstacle;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ(LockObstacle::NoDescriptorLeft, obstacle);
}

TEST_F(LockObstacleTest, IsToldByTheErrorOfTheFolder)
{
    EXPECT_EQ(LockObstacle::NoFolder, obstacleOf(ENOENT));
    EXPECT_EQ(LockObstacle::NoFolder, obstacleOf(ENOTDIR));
    EXPECT_EQ(LockObstacle::NoDescriptorLeft, obstacleOf(ENFILE));
    EXPECT_EQ(LockObstacle::FolderReadOnly, obstacleOf(EROFS));
    EXPECT_EQ(LockObstacle::FolderFull, obstacleOf(ENOSPC));
    EXPECT_EQ(LockObstacle::FolderFull, obstacleOf(EDQUOT));
    EXPECT_EQ(LockObstacle::FolderNotWritable, obstacleOf(EACCES));
}

class LockRoundsTest : public LockLimitsTest
{
protected:
    static constexpr int kRounds = 100;

    /// How many of the rounds went wrong.
    struct Faults
    {
        int intrusions = 0;  // rounds in which somebody came in while another was inside, or nobody came in any more
        int otherValues = 0; // rounds after which the semaphore had another value than 1, or was gone
    };

    /// What @p prepare makes at the start of a round lives until the round is over.
    Faults playRounds(const std::function<std::shared_ptr<void>()>& prepare)
    {
        Faults faults;
        for (int round = 0; round < kRounds; ++round) {
            m_folder.makeKeyFile();
            {
                const std::shared_ptr<void> prepared = prepare();
                faults.intrusions += isDisturbed() ? 1 : 0;
                faults.otherValues += m_folder.look().value == 1 ? 0 : 1;
            }
            m_folder.clear();
        }
        std::cout << faults.intrusions << " of " << kRounds << " rounds were disturbed: " << m_intruders
                  << " came in while another was inside, " << m_stranded << " waited for a token that was nowhere\n";
        RecordProperty("DisturbedRounds", faults.intrusions);
        return faults;
    }

    void expectNoFaults(const std::function<std::shared_ptr<void>()>& prepare)
    {
        const Faults faults = playRounds(prepare);
        EXPECT_EQ(0, faults.intrusions);
        EXPECT_EQ(0, faults.otherValues);
    }

private:
    static void visit(Counts& counts, int visitor)
    {
        constexpr int kLengthOfVisit = 20;
        g_counts = &counts;
        GlobalMutex mutex;
        counts.waiting.at(visitor) = true;
        mutex.lock();
        counts.waiting.at(visitor) = false;
        if (counts.inside.fetch_add(1) > 0)
            ++counts.intruders;
        for (int turn = 0; turn < kLengthOfVisit; ++turn)
            sched_yield(); // lets the others come
        --counts.inside;
        mutex.unlock();
    }

    /// Waits for the visitors. Returns how many are left who wait for a token that is nowhere, and ends them: when
    /// those who are left all sleep in lock(), and had no other to wake them when that was looked at, they sleep for
    /// ever. A time limit would end some who only wait for their turn: on a loaded machine a round takes seconds.
    static int waitForTheVisitors(const Counts& counts, std::array<std::unique_ptr<ChildProcess>, kVisitors>& visitors)
    {
        int livingBefore = kVisitors;
        while (true) {
            int living = 0;
            int asleep = 0;
            for (int visitor = 0; visitor < kVisitors; ++visitor) {
                if (visitors.at(visitor)->hasEnded())
                    continue;
                ++living;
                asleep += counts.waiting.at(visitor) && visitors.at(visitor)->isAsleep() ? 1 : 0;
            }
            if (living == asleep && std::exchange(livingBefore, living) == living) {
                for (auto& visitor : visitors)
                    visitor->kill();
                return living;
            }
            sched_yield();
        }
    }

    bool isDisturbed()
    {
        const SharedCounts counts;
        std::array<std::unique_ptr<ChildProcess>, kVisitors> visitors;
        for (int visitor = 0; visitor < kVisitors; ++visitor)
            visitors.at(visitor) = std::make_unique<ChildProcess>([&] { visit(*counts.get(), visitor); });
        const int stranded = waitForTheVisitors(*counts.get(), visitors);
        removeAllButTheLast(*counts.get());
        m_intruders += counts->intruders;
        m_stranded += stranded;
        return counts->intruders > 0 || stranded > 0;
    }

    /// Nobody removes a semaphore whose key file was removed first; a later file of the same number would have it.
    void removeAllButTheLast(const Counts& counts)
    {
        const int last = m_folder.look().semaphore;
        for (unsigned i = 0; i < counts.opened; ++i) {
            if (counts.semaphores.at(i) != last)
                semctl(counts.semaphores.at(i), 0, IPC_RMID);
        }
    }

    int m_intruders = 0;
    int m_stranded = 0;
};

TEST_F(LockRoundsTest, ShortLivedProcessesWithoutASeedGetInBetween)
{
    EXPECT_GT(playRounds([] { return nullptr; }).intrusions, 0);
}

TEST_F(LockRoundsTest, NobodyGetsInBetweenWhileTheFirstProcessLivesOn)
{
    expectNoFaults([] { return std::make_shared<GlobalMutex>(); });
}

TEST_F(LockRoundsTest, NobodyGetsInBetweenWhenTheFirstProcessLeftWithoutItsDestructors)
{
    expectNoFaults([] {
        ChildProcess([] {
            const GlobalMutex mutex;
            _exit(0);
        }).join();
        return nullptr;
    });
}

TEST_F(LockRoundsTest, NobodyGetsInBetweenWithASeed)
{
    expectNoFaults([this] {
        m_folder.seed();
        return nullptr;
    });
}

} // namespace
