// One thread hands a job to another, and waits for the answer.

#include <cstdio>
#include <memory>

#include <abstractionlibrary/event.h>
#include <abstractionlibrary/thread.h>

using namespace VorelKestrel;

//! [example]
struct Job
{
    int number;
};

class Doubler : public AL::Thread
{
public:
    ~Doubler() override { join(); }

    void run() override
    {
        auto* job = static_cast<Job*>(m_request.wait(-1)); // without limit
        job->number *= 2;
        m_answer.set(job);
    }
    bool submit(Job& job) { return m_request.set(&job); } // false: the last job has not been taken yet
    bool isDone(int milliseconds) { return m_answer.wait(milliseconds) != nullptr; }

private:
    AL::EventVoid m_request;
    AL::EventVoid m_answer;
};
//! [example]

int main()
{
    Doubler doubler;
    doubler.start();
    Job job{21};
    doubler.submit(job);
    while (!doubler.isDone(1000))
        std::puts("still waiting");
    std::printf("%d\n", job.number);
}
