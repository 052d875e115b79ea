#ifndef TESTS_EXCLUSION_WORKERPROCESSES_H
#define TESTS_EXCLUSION_WORKERPROCESSES_H

#include <array>
#include <random>
#include <string>

#include <sys/types.h>

#include "tests/exclusion/sharedchip.h"

/// The processes that share a chip. Each runs its own program, which loads the library.
class WorkerProcesses
{
public:
    static constexpr int kSize = 8;

    /// @p seed determines what each does, but not which comes first.
    WorkerProcesses(const SharedChipMemory& memory, unsigned seed);
    /// Kills those that still run.
    ~WorkerProcesses();
    WorkerProcesses(const WorkerProcesses&) = delete;
    WorkerProcesses& operator=(const WorkerProcesses&) = delete;

    /// Starts a process for that place. @p temporaryFolder is the folder in which it looks for the lock, if it is not
    /// that of this process.
    void start(int place, const char* lock = "locked", const std::string& temporaryFolder = {});
    void startAll();

    /// Kills one that has been on the bus, chosen by @p random, and starts another in its place. Returns false if there
    /// is none.
    bool replaceOne(std::mt19937& random);

    /// Waits for the end of all. Returns how many did not end well.
    int join();

private:
    struct Member
    {
        pid_t id = 0; // 0: none
        int process = 0;
    };

    const SharedChipMemory& m_memory;
    const unsigned m_seed;
    std::array<Member, kSize> m_members;
    int m_started = 0; // processes so far; the number of the last
};

#endif
