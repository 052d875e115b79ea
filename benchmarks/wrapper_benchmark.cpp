// The wrappers compared with the bare Qt classes, the standard library and POCO: alone, between two threads, in a
// crowd.

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include <QList>
#include <QMutex>
#include <QMutexLocker>
#include <QSemaphore>

#include <Poco/AutoPtr.h>
#include <Poco/Event.h>
#include <Poco/Mutex.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <benchmark/benchmark.h>

#include <abstractionlibrary/event.h>
#include <abstractionlibrary/mutex.h>
#include <abstractionlibrary/queue.h>

#include "benchmarks/crowd.h"
#include "benchmarks/sidebyside.h"

using namespace VorelKestrel;

namespace {

constexpr int kRounds = 2048; // of two threads or a crowd
int g_something;              // what the pointers point to

// Events: set() returns false while the slot is full; wait() takes its value.

class OurEvent
{
public:
    bool set(void* value) { return m_event.set(value); }
    void* wait() { return m_event.wait(-1); }

private:
    AL::EventVoid m_event;
};

class QtEvent
{
public:
    bool set(void* value)
    {
        if (!m_empty.tryAcquire())
            return false;
        m_value = value;
        m_full.release();
        return true;
    }
    void* wait()
    {
        m_full.acquire();
        void* const value = m_value;
        m_empty.release();
        return value;
    }

private:
    QSemaphore m_empty{1};
    QSemaphore m_full{0};
    void* m_value = nullptr;
};

class StandardEvent
{
public:
    bool set(void* value)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_value != nullptr)
                return false;
            m_value = value;
        }
        m_changed.notify_one();
        return true;
    }
    void* wait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_value != nullptr; });
        void* const value = m_value;
        m_value = nullptr;
        return value;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    void* m_value = nullptr;
};

/// Poco's event carries no value, so a guarded slot is added.
class PocoEvent
{
public:
    bool set(void* value)
    {
        {
            const Poco::FastMutex::ScopedLock lock(m_mutex);
            if (m_value != nullptr)
                return false;
            m_value = value;
        }
        m_event.set();
        return true;
    }
    void* wait()
    {
        m_event.wait();
        const Poco::FastMutex::ScopedLock lock(m_mutex);
        void* const value = m_value;
        m_value = nullptr;
        return value;
    }

private:
    Poco::Event m_event;
    Poco::FastMutex m_mutex;
    void* m_value = nullptr;
};

// Queues.

class OurQueue
{
public:
    void push(void* value) { m_queue.push(value); }
    void* pop()
    {
        int timeout = -1;
        return m_queue.pop(timeout);
    }

private:
    AL::QueueVoid m_queue;
};

class QtQueue
{
public:
    void push(void* value)
    {
        const QMutexLocker locker(&m_mutex);
        m_list.append(value);
        m_semaphore.release();
    }
    void* pop()
    {
        m_semaphore.acquire();
        const QMutexLocker locker(&m_mutex);
        return m_list.takeFirst();
    }

private:
    QMutex m_mutex;
    QSemaphore m_semaphore{0};
    QList<void*> m_list;
};

class StandardQueue
{
public:
    void push(void* value)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_values.push_back(value);
        }
        m_filled.notify_one();
    }
    void* pop()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_filled.wait(lock, [this] { return !m_values.empty(); });
        void* const value = m_values.front();
        m_values.pop_front();
        return value;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_filled;
    std::deque<void*> m_values;
};

/// Its values are objects that count their users; one is enough here.
class PocoQueue
{
public:
    void push(void* /*value*/) { m_queue.enqueueNotification(m_notification); }
    void* pop()
    {
        const Poco::AutoPtr<Poco::Notification> notification(m_queue.waitDequeueNotification());
        return const_cast<Poco::Notification*>(notification.get());
    }

private:
    Poco::AutoPtr<Poco::Notification> m_notification{new Poco::Notification};
    Poco::NotificationQueue m_queue;
};

// What is done with each of them.

template<typename Lock>
void useAlone(Lock& mutex)
{
    mutex.lock();
    mutex.unlock();
}

template<typename Event>
void setAndWait(Event& event)
{
    event.set(&g_something);
    benchmark::DoNotOptimize(event.wait());
}

template<typename Queue>
void pushAndPop(Queue& queue)
{
    queue.push(&g_something);
    benchmark::DoNotOptimize(queue.pop());
}

template<typename Thing>
using Use = void (*)(Thing&);

template<typename Ours, typename Peer>
void BM_Alone(benchmark::State& state, Use<Ours> useOurs, Use<Peer> usePeer)
{
    Ours ours;
    Peer peer;
    runSideBySide(
        state, [&] { useOurs(ours); }, [&] { usePeer(peer); });
}

/// Two works, each for a crowd, in turns; nanoseconds per round.
void crowdInTurns(benchmark::State& state, int members, int rounds, const WorkFactory& ours, const WorkFactory& peer)
{
    Crowd crowd(Crowd::Kind::Threads, members, {ours, peer});
    measureInTurns(
        state, [&] { return crowd.run(0, rounds) / rounds; }, [&] { return crowd.run(1, rounds) / rounds; });
}

template<typename Lock>
WorkFactory fightOver(Lock& mutex)
{
    return [&mutex](int /*member*/) -> Work {
        return [&mutex](int times) {
            for (int time = 0; time < times; ++time)
                useAlone(mutex);
        };
    };
}

template<typename Ours, typename Peer>
void BM_MutexBetweenThreads(benchmark::State& state)
{
    Ours ours;
    Peer peer;
    crowdInTurns(state, 2, kRounds, fightOver(ours), fightOver(peer));
}

template<typename Event>
struct EventPair
{
    Event there;
    Event back;
};

/// The value goes to the other thread and back; one round is both ways.
template<typename Event>
WorkFactory pingPong(EventPair<Event>& events)
{
    return [&events](int member) -> Work {
        return [&events, member](int times) {
            for (int time = 0; time < times; ++time) {
                if (member == 0)
                    events.there.set(&g_something);
                benchmark::DoNotOptimize((member == 0 ? events.back : events.there).wait());
                if (member == 1)
                    events.back.set(&g_something);
            }
        };
    };
}

template<typename Ours, typename Peer>
void BM_EventBetweenThreads(benchmark::State& state)
{
    EventPair<Ours> ours;
    EventPair<Peer> peer;
    crowdInTurns(state, 2, kRounds / 4, pingPong(ours), pingPong(peer));
}

/// The first half of the crowd pushes, the second half pops.
template<typename Queue>
WorkFactory pushOrPop(Queue& queue, int producers)
{
    return [&queue, producers](int member) -> Work {
        return [&queue, isProducer = member < producers](int times) {
            for (int time = 0; time < times; ++time) {
                if (isProducer)
                    queue.push(&g_something);
                else
                    benchmark::DoNotOptimize(queue.pop());
            }
        };
    };
}

template<typename Ours, typename Peer>
void BM_QueueOfACrowd(benchmark::State& state)
{
    Ours ours;
    Peer peer;
    const int producers = static_cast<int>(state.range(0));
    crowdInTurns(state, 2 * producers, kRounds / producers, pushOrPop(ours, producers), pushOrPop(peer, producers));
}

template<typename Peer>
void registerMutex(const std::string& name)
{
    benchmark::RegisterBenchmark(("wrappers/mutex alone/" + name).c_str(), BM_Alone<AL::Mutex, Peer>,
                                 useAlone<AL::Mutex>, useAlone<Peer>)
        ->UseManualTime();
    benchmark::RegisterBenchmark(("wrappers/mutex between two threads/" + name).c_str(),
                                 BM_MutexBetweenThreads<AL::Mutex, Peer>)
        ->UseManualTime();
}

template<typename Peer>
void registerEvent(const std::string& name)
{
    benchmark::RegisterBenchmark(("wrappers/event alone/" + name).c_str(), BM_Alone<OurEvent, Peer>,
                                 setAndWait<OurEvent>, setAndWait<Peer>)
        ->UseManualTime();
    benchmark::RegisterBenchmark(("wrappers/event between two threads/" + name).c_str(),
                                 BM_EventBetweenThreads<OurEvent, Peer>)
        ->UseManualTime();
}

template<typename Peer>
void registerQueue(const std::string& name)
{
    benchmark::RegisterBenchmark(("wrappers/queue alone/" + name).c_str(), BM_Alone<OurQueue, Peer>,
                                 pushAndPop<OurQueue>, pushAndPop<Peer>)
        ->UseManualTime();
    benchmark::RegisterBenchmark(("wrappers/queue of so many producers and consumers/" + name).c_str(),
                                 BM_QueueOfACrowd<OurQueue, Peer>)
        ->RangeMultiplier(2)
        ->Range(1, 8)
        ->UseManualTime();
}

} // namespace

int main(int argc, char** argv)
{
    registerMutex<QMutex>("QMutex");
    registerMutex<std::mutex>("std::mutex");
    registerMutex<Poco::FastMutex>("Poco::FastMutex");
    registerEvent<QtEvent>("two QSemaphores");
    registerEvent<StandardEvent>("std::condition_variable");
    registerEvent<PocoEvent>("Poco::Event");
    registerQueue<QtQueue>("QList, QMutex, QSemaphore");
    registerQueue<StandardQueue>("std::deque, std::condition_variable");
    registerQueue<PocoQueue>("Poco::NotificationQueue");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
