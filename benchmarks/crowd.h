#ifndef BENCHMARKS_CROWD_H
#define BENCHMARKS_CROWD_H

#include <functional>
#include <memory>
#include <pthread.h>
#include <sys/types.h>
#include <thread>
#include <vector>

/// The work that each member of a crowd repeats.
using Work = std::function<void(int times)>;

/// Makes the work of one member, in the member's own thread or process.
using WorkFactory = std::function<Work(int member)>;

/**
 * Several threads or processes that start one piece of work together, again and again.
 *
 * Threads:   one thread builds it, runs it and destroys it; that thread has no others beside it when it makes
 *            processes.
 */
class Crowd
{
public:
    enum class Kind
    {
        Threads,
        Processes
    };

    /// Each member can do every work of @p works.
    Crowd(Kind kind, int size, const std::vector<WorkFactory>& works);
    ~Crowd();
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    /// Every member does @p work @p times times. Returns the nanoseconds until the last is done.
    double run(int work, int times);

private:
    struct Gate;

    static void serve(Gate& gate, int member, const std::vector<WorkFactory>& factories);
    static Gate* shared(int members);

    Gate* m_gate; // owned; in memory that the processes share
    std::vector<std::thread> m_threads;
    std::vector<pid_t> m_processes;
};

#endif
