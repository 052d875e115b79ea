#include "benchmarks/crowd.h"

#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "benchmarks/sidebyside.h"

namespace {

constexpr int kNoWork = -1; // go home

} // namespace

struct Crowd::Gate
{
    pthread_barrier_t start;
    pthread_barrier_t end;
    int work;  // written before start, read after it
    int times; // the same
};

Crowd::Crowd(Kind kind, int size, const std::vector<WorkFactory>& works) : m_gate(shared(size))
{
    for (int member = 0; member < size; ++member) {
        if (kind == Kind::Threads) {
            m_threads.emplace_back([this, member, works] { serve(*m_gate, member, works); });
            continue;
        }
        const pid_t child = fork();
        if (child == 0) {
            serve(*m_gate, member, works);
            _exit(0);
        }
        m_processes.push_back(child);
    }
}

Crowd::~Crowd()
{
    m_gate->work = kNoWork;
    pthread_barrier_wait(&m_gate->start);
    for (auto& thread : m_threads)
        thread.join();
    for (const pid_t process : m_processes)
        waitpid(process, nullptr, 0);
    munmap(m_gate, sizeof(Gate));
}

double Crowd::run(int work, int times)
{
    m_gate->work = work;
    m_gate->times = times;
    const Stopwatch stopwatch;
    pthread_barrier_wait(&m_gate->start);
    pthread_barrier_wait(&m_gate->end);
    return stopwatch.nanoseconds();
}

void Crowd::serve(Gate& gate, int member, const std::vector<WorkFactory>& factories)
{
    std::vector<Work> works;
    works.reserve(factories.size());
    for (const auto& factory : factories)
        works.push_back(factory(member));
    while (true) {
        pthread_barrier_wait(&gate.start);
        if (gate.work == kNoWork)
            return;
        works[static_cast<std::size_t>(gate.work)](gate.times);
        pthread_barrier_wait(&gate.end);
    }
}

Crowd::Gate* Crowd::shared(int members)
{
    void* const memory = mmap(nullptr, sizeof(Gate), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    auto* const gate = new (memory) Gate;
    pthread_barrierattr_t attributes;
    pthread_barrierattr_init(&attributes);
    pthread_barrierattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    const auto everyone = static_cast<unsigned>(members) + 1; // with the one that runs it
    pthread_barrier_init(&gate->start, &attributes, everyone);
    pthread_barrier_init(&gate->end, &attributes, everyone);
    pthread_barrierattr_destroy(&attributes);
    return gate;
}
