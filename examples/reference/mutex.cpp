// Two threads add to one number.

#include <cstdio>

#include <abstractionlibrary/mutex.h>
#include <abstractionlibrary/thread.h>

using namespace VorelKestrel;

//! [example]
class Counter
{
public:
    void add()
    {
        m_mutex.lock();
        ++m_count;
        m_mutex.unlock();
    }
    bool addUnlessBusy()
    {
        if (!m_mutex.tryLock())
            return false; // another thread is adding right now
        ++m_count;
        m_mutex.unlock();
        return true;
    }
    int count() const { return m_count; }

private:
    AL::Mutex m_mutex;
    int m_count = 0; // guarded by m_mutex
};
//! [example]

namespace {

class Adder : public AL::Thread
{
public:
    explicit Adder(Counter& counter) : m_counter(counter) {}
    void run() override
    {
        for (int i = 0; i < 1000; ++i)
            m_counter.add();
    }

private:
    Counter& m_counter;
};

} // namespace

int main()
{
    Counter counter;
    Adder first(counter);
    Adder second(counter);
    first.start();
    second.start();
    first.join();
    second.join();
    counter.addUnlessBusy(); // no other thread is left
    std::printf("%d\n", counter.count());
}
