// The system-wide lock compared with other locks between processes: free, contended, and after a holder's death.

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <new>
#include <pthread.h>
#include <semaphore.h>
#include <string>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <boost/interprocess/sync/named_mutex.hpp>

#include <abstractionlibrary/globalmutex.h>

#include "benchmarks/crowd.h"
#include "benchmarks/sidebyside.h"

namespace {

constexpr int kRounds = 1024;     // of a crowd, shared by its members
constexpr unsigned kPatience = 1; // seconds until a lock counts as lost with its holder
constexpr mode_t kOnlyThisUser = 0600;

std::string uniqueName(const char* kind)
{
    static int count = 0;
    return "authchipdriver-bench-" + std::string(kind) + '-' + std::to_string(getpid()) + '-' + std::to_string(++count);
}

// Each lock is created once and inherited by the processes that share it, which call lock() and unlock().

using OurLock = VorelKestrel::AL::GlobalMutex;

class FileLock
{
public:
    FileLock() { close(open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOnlyThisUser)); }
    ~FileLock()
    {
        if (m_process == getpid())
            close(m_descriptor);
        unlink(m_path.c_str());
    }

    void lock() { flock(descriptor(), LOCK_EX); }
    void unlock() { flock(descriptor(), LOCK_UN); }

private:
    /// The lock belongs to the open file, so each process opens it for itself.
    int descriptor()
    {
        if (m_process != getpid()) {
            m_process = getpid();
            m_descriptor = open(m_path.c_str(), O_RDWR | O_CLOEXEC);
        }
        return m_descriptor;
    }

    const std::string m_path = "/tmp/" + uniqueName("flock");
    pid_t m_process = 0; // that has opened it; a forked process has a copy of this object
    int m_descriptor = -1;
};

template<short flags>
class SystemVLock
{
public:
    SystemVLock() : m_semaphores(semget(IPC_PRIVATE, 1, kOnlyThisUser)) { semctl(m_semaphores, 0, SETVAL, 1); }
    ~SystemVLock() { semctl(m_semaphores, 0, IPC_RMID); }

    void lock() { change(-1); }
    void unlock() { change(1); }

private:
    void change(short delta)
    {
        sembuf operation = {0, delta, flags};
        while (semop(m_semaphores, &operation, 1) != 0 && errno == EINTR) {}
    }

    const int m_semaphores;
};

class PosixNamedLock
{
public:
    PosixNamedLock() : m_semaphore(sem_open(m_name.c_str(), O_CREAT | O_EXCL, kOnlyThisUser, 1)) {}
    ~PosixNamedLock()
    {
        sem_close(m_semaphore);
        sem_unlink(m_name.c_str());
    }

    void lock()
    {
        while (sem_wait(m_semaphore) != 0 && errno == EINTR) {}
    }
    void unlock() { sem_post(m_semaphore); }

private:
    const std::string m_name = '/' + uniqueName("sem");
    sem_t* const m_semaphore;
};

class RobustLock
{
public:
    RobustLock()
        : m_mutex(new (mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                            0)) pthread_mutex_t)
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
        pthread_mutex_init(m_mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~RobustLock() { munmap(m_mutex, sizeof(pthread_mutex_t)); }

    void lock()
    {
        if (pthread_mutex_lock(m_mutex) == EOWNERDEAD)
            pthread_mutex_consistent(m_mutex);
    }
    void unlock() { pthread_mutex_unlock(m_mutex); }

private:
    pthread_mutex_t* const m_mutex;
};

class BoostLock
{
public:
    BoostLock() : m_mutex(boost::interprocess::create_only, m_name.c_str()) {}
    ~BoostLock() { boost::interprocess::named_mutex::remove(m_name.c_str()); }

    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }

private:
    const std::string m_name = uniqueName("boost");
    boost::interprocess::named_mutex m_mutex;
};

/// True if the lock still works after its holder was killed.
template<typename Lock>
bool survivesAKilledHolder()
{
    Lock lock;
    const pid_t holder = fork();
    if (holder == 0) {
        lock.lock();
        raise(SIGKILL);
    }
    waitpid(holder, nullptr, 0);
    const pid_t next = fork();
    if (next == 0) {
        signal(SIGALRM, SIG_DFL);
        alarm(kPatience);
        lock.lock();
        lock.unlock();
        _exit(0);
    }
    int status = 0;
    waitpid(next, &status, 0);
    return WIFEXITED(status);
}

template<typename Lock>
void BM_Free(benchmark::State& state)
{
    OurLock ours;
    Lock peer;
    const auto once = [](auto& lock) {
        lock.lock();
        lock.unlock();
    };
    runSideBySide(
        state, [&] { once(ours); }, [&] { once(peer); });
    static const bool oursSurvives = survivesAKilledHolder<OurLock>();
    static const bool peerSurvives = survivesAKilledHolder<Lock>();
    state.counters["ours_survives"] = oursSurvives;
    state.counters["peer_survives"] = peerSurvives;
}

template<typename Lock>
WorkFactory takeAndGive(Lock& lock)
{
    return [&lock](int /*member*/) -> Work {
        return [&lock](int times) {
            for (int time = 0; time < times; ++time) {
                lock.lock();
                lock.unlock();
            }
        };
    };
}

template<typename Lock>
void BM_FoughtOver(benchmark::State& state)
{
    OurLock ours;
    Lock peer;
    const int processes = static_cast<int>(state.range(0));
    Crowd crowd(Crowd::Kind::Processes, processes, {takeAndGive(ours), takeAndGive(peer)});
    const auto perLock = [&](int work) { return crowd.run(work, kRounds / processes) / kRounds; };
    measureInTurns(
        state, [&] { return perLock(0); }, [&] { return perLock(1); });
}

template<typename Lock>
void registerLock(const std::string& name)
{
    benchmark::RegisterBenchmark(("locks/free/" + name).c_str(), BM_Free<Lock>)->UseManualTime();
    benchmark::RegisterBenchmark(("locks/fought over/" + name).c_str(), BM_FoughtOver<Lock>)
        ->RangeMultiplier(2)
        ->Range(2, 16)
        ->UseManualTime();
}

} // namespace

int main(int argc, char** argv)
{
    registerLock<FileLock>("flock");
    registerLock<SystemVLock<SEM_UNDO>>("semop, undone at exit");
    registerLock<SystemVLock<0>>("semop, not undone");
    registerLock<PosixNamedLock>("POSIX named semaphore");
    registerLock<RobustLock>("robust process-shared mutex");
    registerLock<BoostLock>("boost named_mutex");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
