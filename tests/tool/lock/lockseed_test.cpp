#include "tool/lock/lockseed.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/ipc.h>
#include <sys/random.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <abstractionlibrary/globalmutex.h>

#include "common/lockkey.h"
#include "common/next.h"
#include "common/scopeddescriptor.h"
#include "tests/support/anotheruser.h"
#include "tests/support/childprocess.h"
#include "tests/support/stoppedprocess.h"
#include "tests/tool/lock/lockfolder.h"
#include "tool/doctor/checks.h"
#include "tool/report/failure.h"

using namespace VorelKestrel::Tool;
using namespace testsupport;
using VorelKestrel::AL::GlobalMutex;

namespace {

namespace fs = std::filesystem;

constexpr mode_t kModeOfSeed = 0444;

bool g_isRandomnessGuessed = false;
VorelKestrel::Next<ssize_t(void*, std::size_t, unsigned)> g_systemsGetrandom("getrandom");

/// While it lives, an attacker knows the random name of a seed's new file.
class GuessedRandomness
{
public:
    GuessedRandomness() { g_isRandomnessGuessed = true; }
    ~GuessedRandomness() { g_isRandomnessGuessed = false; }
    GuessedRandomness(const GuessedRandomness&) = delete;
    GuessedRandomness& operator=(const GuessedRandomness&) = delete;

    static constexpr char kName[] = ".seed-0000000000000000"; // after the key file's
};

/// Where the system lets this process: semaphores that are nobody else's, until the end of the scope.
class OwnSemaphores
{
public:
    OwnSemaphores() : m_before(open("/proc/self/ns/ipc", O_RDONLY | O_CLOEXEC)), m_areAlone(unshare(CLONE_NEWIPC) == 0)
    {}
    ~OwnSemaphores()
    {
        if (m_areAlone)
            setns(m_before.get(), CLONE_NEWIPC); // the library's lock is there
    }
    OwnSemaphores(const OwnSemaphores&) = delete;
    OwnSemaphores& operator=(const OwnSemaphores&) = delete;

    bool areAlone() const { return m_areAlone; }

private:
    const VorelKestrel::ScopedDescriptor m_before;
    const bool m_areAlone;
};

} // namespace

ssize_t getrandom(void* buffer, std::size_t length, unsigned flags)
{
    if (!g_isRandomnessGuessed)
        return g_systemsGetrandom(buffer, length, flags);
    std::memset(buffer, 0, length);
    return static_cast<ssize_t>(length);
}

namespace {

class LockSeedTest : public testing::Test
{
protected:
    LockSeedTest() { alarm(kLongest); } // what waits for ever fails
    ~LockSeedTest() override { alarm(0); }

    void SetUp() override { ASSERT_TRUE(newSets().empty()); }

    fs::path folder() const { return fs::path(m_folder.keyFile()).parent_path(); }
    SeedResult seed(const WantedRights& wanted = {}) { return seedLock(m_folder.keyFile(), wanted); }

    /// What the seed refuses with; empty if it does not.
    std::string refusal()
    {
        try {
            seed();
        } catch (const Failure& failure) {
            return failure.answer();
        }
        return "";
    }

    void letEverybodyWrite(bool sticky) const { chmod(folder().c_str(), sticky ? 01777 : 0777); }

    /// A sound lock with one token, and nothing beside it.
    void expectSoundLock()
    {
        const LockState state = m_folder.look();
        EXPECT_TRUE(state.stays);
        EXPECT_EQ(LockCondition::Free, state.condition);
        EXPECT_EQ(1, state.value);
        EXPECT_EQ(1, setsOfFolder());
        const FolderIdentity identity = KeyFolder(m_folder.keyFile()).identity(); // tells it without its key file
        EXPECT_EQ(identity[0], controlSemaphore(state.semaphore, 1, GETVAL));
        EXPECT_EQ(identity[1], controlSemaphore(state.semaphore, 2, GETVAL));
        Examination examination;
        examination.lockFile = m_folder.keyFile();
        for (const Finding& finding : checkLock(examination))
            EXPECT_TRUE(finding.isHealthy()) << finding.found;
        EXPECT_EQ(1, std::distance(fs::directory_iterator(folder()), fs::directory_iterator()));
    }

    /// The set of an earlier seed whose tokens somebody has spoilt; an old one of the key loses its own.
    static void makeSetOfTwoTokens(key_t key, const FolderIdentity& identity)
    {
        const int set = semget(key, kSemaphoresOfSeed, IPC_CREAT | 0600);
        std::array<unsigned short, kSemaphoresOfSeed> values = {2, identity[0], identity[1]};
        SemaphoreArgument argument = {};
        argument.values = values.data();
        controlSemaphore(set, 0, SETALL, argument);
    }

    /// How many sets of seeds the folder has, with a key file or without.
    int setsOfFolder()
    {
        const KeyFolder own(m_folder.keyFile());
        return static_cast<int>(findOrphans(own).size()) + (m_folder.look().isSeeded ? 1 : 0);
    }

    /// Everything that a seed has made since the test began, found or not; as far as it can be told from others'.
    std::vector<int> newSets()
    {
        std::vector<int> numbers;
        for (const SemaphoreSet& set : semaphoreSets()) {
            if (set.size == kSemaphoresOfSeed && (m_own.areAlone() || set.number == m_folder.look().semaphore))
                numbers.push_back(set.number);
        }
        return numbers;
    }

    static constexpr unsigned kLongest = 100; // seconds
    /// Whatever user runs the test removes such a lock; of others it cannot see who uses them, unless it is root.
    const WantedRights m_forThisUserAlone = {std::nullopt, 0600};
    const OwnSemaphores m_own;
    LockFolder m_folder;
};

TEST_F(LockSeedTest, MakesAFreeLockThatStaysAndASecondOneChangesNothing)
{
    EXPECT_EQ(SeedResult::Made, seed());
    expectSoundLock();
    const int semaphore = m_folder.look().semaphore;
    EXPECT_EQ(SeedResult::Unchanged, seed());
    expectSoundLock();
    EXPECT_EQ(semaphore, m_folder.look().semaphore);
}

TEST_F(LockSeedTest, GivesTheLockTheRightsThatAreWantedAndKeepsTheOthers)
{
    seed({7, 0666});
    EXPECT_EQ((LockRights{geteuid(), 7, 0666}), m_folder.look().rights);
    EXPECT_EQ(SeedResult::RightsChanged, seed({70000, std::nullopt}));
    EXPECT_EQ((LockRights{geteuid(), 70000, 0666}), m_folder.look().rights);
    expectSoundLock();
}

TEST_F(LockSeedTest, KilledAtAnySystemCallIsFinishedByTheNext)
{
    int stop = 0;
    for (bool killed = true; killed; ++stop) {
        SCOPED_TRACE(stop);
        const auto result = killAtSystemCall(stop, [this] { seed({7, 0666}); });
        if (!result)
            GTEST_SKIP() << "this system lets no process be traced";
        killed = *result;
        const int found = m_folder.look().semaphore; // if it can be found already, it may be in use
        EXPECT_EQ(found < 0 ? SeedResult::Made : SeedResult::Unchanged, seed({7, 0666}));
        EXPECT_TRUE(found < 0 || found == m_folder.look().semaphore);
        expectSoundLock();
        EXPECT_EQ(SeedResult::Unchanged, seed({7, 0666}));
        m_folder.clear();
    }
    EXPECT_GT(stop, 30); // a seed has more stops than that, each of which was tried
}

TEST_F(LockSeedTest, KilledAtAnySystemCallWhileItReplacesAFolderIsFinishedByTheNext)
{
    bool killed = true;
    for (int stop = 0; killed; ++stop) {
        SCOPED_TRACE(stop);
        fs::create_directory(m_folder.keyFile());
        const auto result = killAtSystemCall(stop, [this] { seed(); });
        if (!result)
            GTEST_SKIP() << "this system lets no process be traced";
        killed = *result;
        seed();
        expectSoundLock();
        m_folder.clear();
    }
}

TEST_F(LockSeedTest, LeavesNoSemaphoreBehindWhereverItIsKilled)
{
    bool killed = true;
    for (int stop = 0; killed; ++stop) {
        SCOPED_TRACE(stop);
        const auto result = killAtSystemCall(stop, [this] { seed(); });
        if (!result)
            GTEST_SKIP() << "this system lets no process be traced";
        killed = *result;
        seed();
        EXPECT_EQ(std::vector<int>{m_folder.look().semaphore}, newSets());
        m_folder.clear();
        EXPECT_TRUE(newSets().empty());
    }
}

/// Ends at a signal, like most programs. One that ends in the middle of its work leaves something behind.
TEST_F(LockSeedTest, AtASignalIsCompleteOrNotBegun)
{
    int complete = 0;
    bool wasStopped = true;
    for (int stop = 0; wasStopped; ++stop) {
        SCOPED_TRACE(stop);
        const auto run = stopAtSystemCall(
            stop,
            [this] {
                seed({7, 0666});
            },
            [](pid_t process) { kill(process, SIGTERM); });
        if (!run)
            GTEST_SKIP() << "this system lets no process be traced";
        wasStopped = run->wasStopped;
        if (fs::is_empty(folder())) {
            EXPECT_TRUE(newSets().empty());
            continue;
        }
        expectSoundLock();
        EXPECT_EQ(SeedResult::Unchanged, seed({7, 0666}));
        m_folder.clear();
        ++complete;
    }
    EXPECT_GT(complete, 30); // a seed has more stops than that
}

TEST_F(LockSeedTest, BesideAnotherThatIsStoppedAtAnySystemCallBothEndWithTheOneLock)
{
    const auto seedAndTell = [this] { _exit(refusal().empty() ? 0 : 1); };
    bool wasStopped = true;
    for (int stop = 0; wasStopped; ++stop) {
        SCOPED_TRACE(stop);
        std::unique_ptr<ChildProcess> other;
        const auto run = stopAtSystemCall(stop, seedAndTell, [&](pid_t /*process*/) {
            other = std::make_unique<ChildProcess>(seedAndTell);
            while (!other->hasEnded() && !other->isAsleep()) // it waits for the one that is stopped
                std::this_thread::yield();
        });
        if (!run)
            GTEST_SKIP() << "this system lets no process be traced";
        wasStopped = run->wasStopped;
        other.reset();
        EXPECT_EQ(0, run->status);
        expectSoundLock();
        m_folder.clear();
    }
}

/// Two locks would let two processes in at once.
TEST_F(LockSeedTest, LeavesTheOneLockThatAProcessOfTheLibrarysMakesOrFindsAtAnySystemCall)
{
    bool wasStopped = true;
    for (int stop = 0; wasStopped; ++stop) {
        SCOPED_TRACE(stop);
        const Channel isInside;
        const Channel mayGo;
        std::unique_ptr<ChildProcess> host;
        const auto run = stopAtSystemCall(
            stop, [this] { refusal(); },
            [&](pid_t /*process*/) {
                host = std::make_unique<ChildProcess>([&] {
                    GlobalMutex mutex;
                    mutex.lock();
                    isInside.say();
                    mayGo.hear();
                    _exit(0); // as a process that is killed: its lock stays
                });
                isInside.hear();
            });
        if (!run)
            GTEST_SKIP() << "this system lets no process be traced";
        wasStopped = run->wasStopped;
        if (wasStopped) {
            EXPECT_EQ(LockCondition::Held, m_folder.look().condition);
            mayGo.say();
        }
        host.reset();
        EXPECT_EQ(1, m_folder.look().value);
        m_folder.clear();
        EXPECT_TRUE(newSets().empty());
    }
}

TEST_F(LockSeedTest, OfManyAtOnceEachIsContentWithTheOneLock)
{
    constexpr int kRounds = 20;
    for (int round = 0; round < kRounds; ++round) {
        {
            std::array<std::unique_ptr<ChildProcess>, 4> seeds;
            for (auto& each : seeds)
                each = std::make_unique<ChildProcess>([this] { _exit(refusal().empty() ? 0 : 1); });
        }
        expectSoundLock();
        m_folder.clear();
    }
}

TEST_F(LockSeedTest, WritesNothingIntoAFileThatIsLinkedToItsPlace)
{
    const fs::path victim = folder() / "victim";
    std::ofstream(victim) << "precious";
    chmod(victim.c_str(), 0600);
    fs::create_hard_link(victim, m_folder.keyFile());

    EXPECT_EQ(SeedResult::Made, seed());
    EXPECT_TRUE(m_folder.look().stays);
    std::string content;
    std::ifstream(victim) >> content;
    EXPECT_EQ("precious", content);
    struct stat status = {};
    stat(victim.c_str(), &status);
    EXPECT_EQ(0600U, status.st_mode & 07777U);
    EXPECT_EQ(1U, status.st_nlink);
}

TEST_F(LockSeedTest, OpensNoFileUnderTheNameOfItsNewOne)
{
    const fs::path victim = folder() / "victim";
    const std::string name = m_folder.keyFile() + GuessedRandomness::kName;
    std::ofstream(victim) << "precious";
    chmod(victim.c_str(), 0600);
    for (const fs::path& target : {victim, folder() / "missing"}) {
        fs::create_symlink(target, name);
        const GuessedRandomness guessed;
        EXPECT_EQ("File exists (EEXIST)", refusal());
        EXPECT_TRUE(fs::remove(name));
        EXPECT_TRUE(newSets().empty());
    }
    EXPECT_EQ(fs::perms(0600), fs::status(victim).permissions());
    EXPECT_FALSE(fs::exists(folder() / "missing"));
}

TEST_F(LockSeedTest, ReplacesWhatIsNoFileWithoutOpeningIt)
{
    const std::string place = m_folder.keyFile();
    const fs::path pipe = folder() / "pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0666));
    const std::vector<std::function<void()>> obstacles = {
        [&] { mkfifo(place.c_str(), 0666); }, // whose opening would wait for a writer
        [&] { fs::create_symlink(pipe, place); },
        [&] { fs::create_symlink("/missing", place); },
        [&] { fs::create_directory(place); },
    };
    for (const auto& obstruct : obstacles) {
        obstruct();
        EXPECT_EQ(-1, m_folder.look().semaphore);
        EXPECT_EQ(SeedResult::Made, seed());
        EXPECT_TRUE(m_folder.look().stays);
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(place)));
        m_folder.clear();
    }
}

/// Who opens a pipe waits for its other end; who opens a device may have it do something.
TEST_F(LockSeedTest, OpensNothingThatItFinds)
{
    const std::string place = m_folder.keyFile();
    const std::vector<std::function<void()>> obstacles = {
        [&] { m_folder.makeKeyFile(); },
        [&] { mkfifo(place.c_str(), 0666); },
        [&] { fs::create_directory(place); },
        [this] { seed(); },
    };
    for (const auto& obstruct : obstacles) {
        obstruct();
        const VorelKestrel::ScopedDescriptor watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        ASSERT_NE(-1, inotify_add_watch(watch.get(), place.c_str(), IN_OPEN));
        Examination examination;
        examination.lockFile = place;
        checkLock(examination);
        examination.token.reset();
        seed();
        seed();
        std::array<char, 4096> events = {};
        const ssize_t length = read(watch.get(), events.data(), events.size());
        EXPECT_TRUE(length < 0 || (reinterpret_cast<inotify_event*>(events.data())->mask & IN_OPEN) == 0);
        m_folder.clear();
    }
}

TEST_F(LockSeedTest, TakesNoSemaphoreForTheLockWhereNoFileGivesAKey)
{
    if (!m_own.areAlone())
        GTEST_SKIP() << "this process has no semaphores of its own";
    constexpr key_t kOfNoFile = -1; // ftok()'s result in that case
    const int other = semget(kOfNoFile, kSemaphoresOfSeed, IPC_CREAT | 0600);
    ASSERT_NE(-1, other);
    EXPECT_EQ(-1, m_folder.look().semaphore);
    fs::create_symlink("/missing", m_folder.keyFile());
    EXPECT_EQ(-1, m_folder.look().semaphore);
    EXPECT_EQ(SeedResult::Made, seed());
    EXPECT_NE(other, m_folder.look().semaphore);
    EXPECT_EQ(0, semctl(other, 0, GETVAL));
    semctl(other, 0, IPC_RMID);
}

TEST_F(LockSeedTest, SetsAFolderAsideWithWhatIsInIt)
{
    fs::create_directory(m_folder.keyFile());
    std::ofstream(fs::path(m_folder.keyFile()) / "content") << "kept";
    EXPECT_EQ(SeedResult::Made, seed());
    EXPECT_TRUE(m_folder.look().stays);
    const auto entries = fs::recursive_directory_iterator(folder());
    EXPECT_EQ(1, std::count_if(begin(entries), end(entries),
                               [](const auto& entry) { return entry.path().filename() == "content"; }));
}

TEST_F(LockSeedTest, RefusesAFolderInWhichOthersCanReplaceTheKeyFile)
{
    letEverybodyWrite(false);
    EXPECT_NE(std::string::npos, refusal().find("is writable for other users and not sticky"));
    EXPECT_TRUE(newSets().empty());
    letEverybodyWrite(true);
    EXPECT_EQ("", refusal());
}

TEST_F(LockSeedTest, BelievesNoTextInTheKeyFile)
{
    m_folder.makeKeyFile();
    ChildProcess([] {
        const GlobalMutex mutex;
        _exit(0); // as a process that is killed: its semaphore stays
    }).join();
    const int semaphore = m_folder.look().semaphore;
    std::ofstream(m_folder.keyFile()) << "authchip lock seed, semaphore " << semaphore << '\n';
    chmod(m_folder.keyFile().c_str(), kModeOfSeed);

    EXPECT_FALSE(m_folder.look().stays); // the number is one from before a reboot
    EXPECT_NE("", refusal());
}

TEST_F(LockSeedTest, DoesNotBelieveTheKeyFileOfBeforeAReboot)
{
    seed();
    semctl(m_folder.look().semaphore, 0, IPC_RMID); // as a reboot does; the folder outlives it
    ChildProcess([] {
        const GlobalMutex mutex;
        _exit(0);
    }).join();
    EXPECT_GE(m_folder.look().semaphore, 0);
    EXPECT_FALSE(m_folder.look().stays);
}

TEST_F(LockSeedTest, DoesNotRelyOnAKeyFileThatAProcessOfTheLibrarysHasMade)
{
    constexpr mode_t kAsQt = 0640;
    seed();
    chmod(m_folder.keyFile().c_str(), kAsQt); // its maker removes it at its exit
    EXPECT_FALSE(m_folder.look().stays);
    EXPECT_NE("", refusal());
}

TEST_F(LockSeedTest, IsMadeAnewAfterAReboot)
{
    seed();
    semctl(m_folder.look().semaphore, 0, IPC_RMID);
    EXPECT_EQ(SeedResult::Made, seed());
    expectSoundLock();
}

TEST_F(LockSeedTest, LeavesASemaphoreOfTheSameKeyToItsProgram)
{
    // The next file may get the number of one that was just removed, and so its key.
    const fs::path file = folder() / "other";
    std::ofstream(file).flush();
    const int other = semget(ftok(file.c_str(), VorelKestrel::kLockKeyProject), 1, IPC_CREAT | 0600);
    fs::remove(file);
    EXPECT_EQ(SeedResult::Made, seed());
    expectSoundLock();
    EXPECT_NE(other, m_folder.look().semaphore);
    EXPECT_EQ(0, semctl(other, 0, GETVAL));
    semctl(other, 0, IPC_RMID);
}

TEST_F(LockSeedTest, TakesUpOrReplacesTheLockOfAnEarlierSeedWhoseKeyFileWasRemoved)
{
    seed(m_forThisUserAlone);
    m_folder.look();
    unlink(m_folder.keyFile().c_str());
    EXPECT_EQ(1U, findOrphans(KeyFolder(m_folder.keyFile())).size());

    const SeedResult result = seed(m_forThisUserAlone);
    EXPECT_TRUE(result == SeedResult::TakenUp || result == SeedResult::Made);
    expectSoundLock();
    EXPECT_EQ(1U, newSets().size());
}

TEST_F(LockSeedTest, TakesUpNoLockWithTwoTokens)
{
    seed(m_forThisUserAlone);
    m_folder.look();
    const FolderIdentity identity = KeyFolder(m_folder.keyFile()).identity();
    unlink(m_folder.keyFile().c_str());
    const SemaphoreSet lost = findOrphans(KeyFolder(m_folder.keyFile())).at(0);
    constexpr key_t kFiles = 4; // a file system gives the lost one's number to the next file, or the number after
    for (key_t key = lost.key; key < lost.key + kFiles; ++key)
        makeSetOfTwoTokens(key, identity);

    EXPECT_EQ(SeedResult::Made, seed());
    expectSoundLock();
}

TEST_F(LockSeedTest, StaysWhoeverGivesItsKeyFileASecondName)
{
    seed();
    fs::create_hard_link(m_folder.keyFile(), folder() / "second");
    EXPECT_TRUE(m_folder.look().stays);
    EXPECT_EQ(SeedResult::Unchanged, seed());
}

TEST_F(LockSeedTest, KnowsTheOrphansOfItsOwnFolderOnly)
{
    seed();
    unlink(m_folder.keyFile().c_str());
    LockFolder other;
    EXPECT_TRUE(findOrphans(KeyFolder(other.keyFile())).empty());
    EXPECT_EQ(1U, findOrphans(KeyFolder(m_folder.keyFile())).size());
    EXPECT_TRUE(removeLock(m_folder.keyFile()));
    EXPECT_TRUE(newSets().empty());
}

TEST_F(LockSeedTest, RemovalLeavesNothingAndSaysWhetherThereWasALock)
{
    EXPECT_FALSE(removeLock(m_folder.keyFile()));
    seed();
    EXPECT_TRUE(removeLock(m_folder.keyFile()));
    EXPECT_TRUE(newSets().empty());
    EXPECT_TRUE(fs::is_empty(folder()));
    EXPECT_EQ(SeedResult::Made, seed());
    expectSoundLock();
}

TEST_F(LockSeedTest, RemovalRefusesALockThatIsHeld)
{
    seed();
    GlobalMutex mutex;
    mutex.lock();
    EXPECT_THROW(removeLock(m_folder.keyFile()), Failure);
    mutex.unlock();
    expectSoundLock();
}

/// Locks that another user has made, or forged, where root makes one. In a folder like /tmp.
class LockSeedAgainstAnotherUserTest : public LockSeedTest
{
protected:
    void SetUp() override
    {
        LockSeedTest::SetUp();
        if (!canBecomeNobody())
            GTEST_SKIP() << "this process cannot become one of another user";
        letEverybodyWrite(true);
    }

    void asNobody(const std::function<void()>& body)
    {
        ChildProcess([&] {
            if (!becomeNobody())
                _exit(1);
            try {
                body();
            } catch (const std::exception& error) {
                std::cerr << error.what() << '\n';
                _exit(1); // and not on with the test
            }
        }).join();
    }

    /// The other makes a set in place of the one that is there, and finishes it.
    void forgeSet(const std::function<void(int set)>& finish)
    {
        semctl(m_folder.look().semaphore, 0, IPC_RMID);
        const key_t key = ftok(m_folder.keyFile().c_str(), VorelKestrel::kLockKeyProject);
        asNobody([key, finish] {
            const int set = semget(key, kSemaphoresOfSeed, IPC_CREAT | 0666);
            semctl(set, 0, SETVAL, 1);
            finish(set);
        });
        EXPECT_GE(m_folder.look().semaphore, 0);
    }

    static void makeVictim(const fs::path& victim)
    {
        fs::remove(victim);
        std::ofstream(victim) << "precious";
        chmod(victim.c_str(), 0600);
    }

    static void expectUntouched(const fs::path& victim)
    {
        std::string content;
        std::ifstream(victim) >> content;
        EXPECT_EQ("precious", content);
        EXPECT_EQ(fs::perms(0600), fs::status(victim).permissions());
    }

    /// After a seed that ended with @p status; ends without a lock.
    void expectRootsLockUnlessRefused(int status)
    {
        const LockState state = m_folder.look();
        if (status == 0) {
            EXPECT_TRUE(state.stays) << state.flaw;
            EXPECT_EQ(LockCondition::Free, state.condition);
            EXPECT_EQ(0U, state.file.status.st_uid);
            EXPECT_EQ(0U, state.creator);
        }
        EXPECT_TRUE(findOrphans(KeyFolder(m_folder.keyFile())).empty());
        m_folder.clear();
        EXPECT_TRUE(newSets().empty());
    }

    void expectRefusalBecauseOfNobody()
    {
        EXPECT_FALSE(m_folder.look().stays);
        EXPECT_NE(std::string::npos, refusal().find("nobody, who can remove it at any time")) << refusal();
    }
};

TEST_F(LockSeedAgainstAnotherUserTest, DoesNotAcceptALockThatTheOtherHasSeeded)
{
    asNobody([this] { seed({kNogroup, 0666}); });
    expectRefusalBecauseOfNobody();
}

TEST_F(LockSeedAgainstAnotherUserTest, DoesNotAcceptALockWhoseOwnershipTheOtherHasGivenAway)
{
    asNobody([this] {
        seed({0, 0666});
        changeRights(m_folder.look().semaphore, {0, 0, 0666}); // the creator stays the same
    });
    m_folder.look();
    EXPECT_EQ(0U, m_folder.look().rights.owner);
    expectRefusalBecauseOfNobody();
}

TEST_F(LockSeedAgainstAnotherUserTest, DoesNotAcceptAForgedSetForAFileOfRoots)
{
    seed();
    forgeSet([](int /*set*/) {});
    expectRefusalBecauseOfNobody();
}

TEST_F(LockSeedAgainstAnotherUserTest, DoesNotAcceptAForgedSetForAFileOfRootsThatTheOtherHasGivenToRoot)
{
    seed();
    forgeSet([](int set) { changeRights(set, {0, 0, 0666}); });
    EXPECT_EQ(0U, m_folder.look().rights.owner);
    expectRefusalBecauseOfNobody();
}

TEST_F(LockSeedAgainstAnotherUserTest, DoesNotAcceptAKeyFileOfTheOthersThatHasTheKeyOfASetOfRoots)
{
    seed();
    EXPECT_EQ(0, chown(m_folder.keyFile().c_str(), kNobody, kNogroup)); // as a file that got the number of a lost one
    expectRefusalBecauseOfNobody();
}

TEST_F(LockSeedAgainstAnotherUserTest, ReplacesAKeyFileOfTheOthersThatHasNoSemaphore)
{
    asNobody([this] { close(open(m_folder.keyFile().c_str(), O_CREAT | O_EXCL | O_CLOEXEC, kModeOfSeed)); });
    EXPECT_EQ(SeedResult::Made, seed());
    expectSoundLock();
    EXPECT_EQ(0U, m_folder.look().file.status.st_uid);
}

TEST_F(LockSeedAgainstAnotherUserTest, RefusesAFolderOfTheOthers)
{
    ASSERT_EQ(0, chown(folder().c_str(), kNobody, kNogroup));
    EXPECT_NE(std::string::npos, refusal().find("belongs to nobody")) << refusal();
    EXPECT_TRUE(newSets().empty());
    EXPECT_FALSE(fs::exists(m_folder.keyFile()));
}

TEST_F(LockSeedAgainstAnotherUserTest, RemovesNoFileOfTheOthersThatHasANameAsItsOwn)
{
    const std::string name = m_folder.keyFile() + GuessedRandomness::kName;
    asNobody([&] { close(open(name.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, kModeOfSeed)); });
    EXPECT_EQ(SeedResult::Made, seed());
    EXPECT_TRUE(fs::exists(name));
}

/// The identity of a folder is no secret.
TEST_F(LockSeedAgainstAnotherUserTest, TakesNoSetOfTheOthersForOneOfAnEarlierSeed)
{
    const fs::path other = folder().parent_path() / "other"; // no file of the lock's folder
    std::ofstream(other) << "content";
    const key_t key = ftok(other.c_str(), VorelKestrel::kLockKeyProject);
    asNobody([this, key] { makeSetOfTwoTokens(key, KeyFolder(m_folder.keyFile()).identity()); });
    const int forged = semget(key, 0, 0);
    EXPECT_GE(forged, 0);
    EXPECT_TRUE(findOrphans(KeyFolder(m_folder.keyFile())).empty());
    EXPECT_EQ(SeedResult::Made, seed());
    expectSoundLock();
    EXPECT_NE(forged, m_folder.look().semaphore);
    EXPECT_EQ(forged, semget(key, 0, 0)); // left to the other
    asNobody([forged] { semctl(forged, 0, IPC_RMID); });
}

TEST_F(LockSeedAgainstAnotherUserTest, RootsRemovalMakesRoomForASeed)
{
    if (!hasRight(CAP_SYS_ADMIN))
        GTEST_SKIP() << "this root may not remove a semaphore of another user";
    asNobody([this] { seed({kNogroup, 0666}); });
    EXPECT_TRUE(removeLock(m_folder.keyFile()));
    EXPECT_EQ(SeedResult::Made, seed());
    expectSoundLock();
}

TEST_F(LockSeedAgainstAnotherUserTest, IsRootsOrRefusedWhateverTheOtherPutsThereMeanwhile)
{
    constexpr int kRounds = 50;
    for (int round = 0; round < kRounds; ++round) {
        const Channel enough;
        ChildProcess other([&] {
            if (!becomeNobody())
                _exit(1);
            const std::string place = m_folder.keyFile();
            std::error_code anyway; // root makes files there as well
            while (!enough.hasWord()) {
                close(open(place.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, kModeOfSeed));
                unlink(place.c_str());
                fs::create_symlink("/etc/passwd", place, anyway);
                unlink(place.c_str());
            }
            unlink(place.c_str());
            _exit(0);
        });
        const std::string answer = refusal();
        enough.say();
        other.join();
        if (answer.empty()) {
            EXPECT_TRUE(m_folder.look().stays);
            EXPECT_EQ(0U, m_folder.look().file.status.st_uid);
        }
        m_folder.clear();
    }
    EXPECT_TRUE(newSets().empty());
}

TEST_F(LockSeedAgainstAnotherUserTest, IsRootsOrRefusedWhateverTheOtherPutsThereAtAnySystemCall)
{
    const std::string place = m_folder.keyFile();
    const fs::path victim = folder() / "victim";
    const auto putForgedLock = [&] {
        close(open(place.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, kModeOfSeed));
        const key_t key = ftok(place.c_str(), VorelKestrel::kLockKeyProject);
        const int set = semget(key, kSemaphoresOfSeed, IPC_CREAT | IPC_EXCL | 0666);
        semctl(set, 0, SETVAL, 1);
    };
    const std::vector<std::function<void()>> obstacles = {
        putForgedLock,
        [&] { close(open(place.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, kModeOfSeed)); },
        [&] { mkfifo(place.c_str(), 0666); },
        [&] {
            std::error_code anyway; // root's may be there already
            fs::create_symlink(victim, place, anyway);
        },
        [&] { mkdir(place.c_str(), 0777); },
    };
    for (const auto& obstruct : obstacles) {
        bool wasStopped = true;
        for (int stop = 0; wasStopped; ++stop) {
            SCOPED_TRACE(stop);
            makeVictim(victim);
            const auto run = stopAtSystemCall(
                stop, [this] { _exit(refusal().empty() ? 0 : 1); }, [&](pid_t /*process*/) { asNobody(obstruct); });
            if (!run)
                GTEST_SKIP() << "this system lets no process be traced";
            wasStopped = run->wasStopped;
            expectUntouched(victim);
            expectRootsLockUnlessRefused(run->status);
            fs::remove_all(place);
        }
    }
}

/// Where the system lets everybody do that (fs.protected_hardlinks=0).
TEST_F(LockSeedAgainstAnotherUserTest, WritesIntoNoFileThatIsLinkedToItsPlaceAtAnySystemCall)
{
    const fs::path victim = folder() / "victim";
    bool wasStopped = true;
    for (int stop = 0; wasStopped; ++stop) {
        SCOPED_TRACE(stop);
        makeVictim(victim);
        const auto run = stopAtSystemCall(
            stop, [this] { _exit(refusal().empty() ? 0 : 1); },
            [&](pid_t /*process*/) {
                std::error_code anyway; // the key file may be there already
                fs::create_hard_link(victim, m_folder.keyFile(), anyway);
            });
        if (!run)
            GTEST_SKIP() << "this system lets no process be traced";
        wasStopped = run->wasStopped;
        expectUntouched(victim);
        expectRootsLockUnlessRefused(run->status);
    }
}

TEST_F(LockSeedAgainstAnotherUserTest, OfRootsTheOtherFindsNothingToChange)
{
    seed({kNogroup, 0660});
    asNobody([this] { _exit(seed() == SeedResult::Unchanged && m_folder.look().stays ? 0 : 1); });
    expectSoundLock();
}

} // namespace
