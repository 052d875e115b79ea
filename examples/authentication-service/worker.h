#ifndef WORKER_H
#define WORKER_H

#include <cstdint>
#include <memory>

#include <abstractionlibrary/queue.h>
#include <abstractionlibrary/thread.h>

#include "authentication.h"

/// One request on its way to the chip and back.
struct Job
{
    std::uint64_t client = 0; // 0: there will be no further job
    Bytes challenge;
    Bytes answer;
};

/// The one thread that talks to the chip.
class Worker : public VorelKestrel::AL::Thread
{
public:
    /// A byte is written to @p wakes for each job that is done.
    Worker(VorelKestrel::ACD::AuthChipDriver& chip, int wakes) : m_chip(chip), m_wakes(wakes) {}
    /// Waits until every job is done, and drops answers that were not fetched.
    ~Worker() override;

    /// Takes over the job; its answer comes from takeDone(). Never waits.
    void handOver(std::unique_ptr<Job> job) { m_jobs.push(job.release()); }
    /// A job that is done; null if there is none.
    std::unique_ptr<Job> takeDone() { return pop(m_done, 0); }
    void run() override;

private:
    static std::unique_ptr<Job> pop(VorelKestrel::AL::QueueVoid& queue, int timeout)
    {
        return std::unique_ptr<Job>(static_cast<Job*>(queue.pop(timeout)));
    }

    VorelKestrel::ACD::AuthChipDriver& m_chip;
    const int m_wakes;
    VorelKestrel::AL::QueueVoid m_jobs; // of Job, which the queue does not own
    VorelKestrel::AL::QueueVoid m_done;
};

#endif
