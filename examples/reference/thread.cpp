// A worker that is joined before the members that it uses are gone.

#include <cstdio>

#include <abstractionlibrary/thread.h>

using namespace VorelKestrel;

//! [example]
class Worker : public AL::Thread
{
public:
    explicit Worker(int number) : m_number(number) {}
    ~Worker() override { join(); } // here, since run() uses m_number

    void run() override { m_result = m_number * m_number; }
    int result() // after the thread has ended
    {
        join();
        return m_result;
    }

private:
    int m_number;
    int m_result = 0;
};
//! [example]

int main()
{
    Worker worker(7);
    worker.start();
    std::printf("%d\n", worker.result());
}
