#include "worker.h"

#include <unistd.h>

Worker::~Worker()
{
    if (isRunning()) {
        handOver(std::make_unique<Job>());
        join();
    }
    while (takeDone() != nullptr) {}
}

void Worker::run()
{
    constexpr int kWithoutLimit = -1;
    for (;;) {
        std::unique_ptr<Job> job = pop(m_jobs, kWithoutLimit);
        if (job->client == 0)
            return;
        job->answer = authenticate(m_chip, job->challenge);
        m_done.push(job.release());
        const char wake = 0;
        const ssize_t written = write(m_wakes, &wake, 1); // a full pipe wakes as well
        static_cast<void>(written);
    }
}
