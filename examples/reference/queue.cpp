// A producer hands values to a consumer. The queue does not own them, so the consumer does.

#include <cstdio>
#include <memory>
#include <string>

#include <abstractionlibrary/queue.h>
#include <abstractionlibrary/thread.h>

using namespace VorelKestrel;

//! [example]
class Printer : public AL::Thread
{
public:
    ~Printer() override { join(); }

    void print(std::unique_ptr<std::string> line) { m_lines.push(line.release()); }
    void finish() { print(std::unique_ptr<std::string>(new std::string())); } // an empty line ends the thread

    void run() override
    {
        for (;;) {
            int timeout = -1; // without limit; pop() changes it, so set it each time
            const std::unique_ptr<std::string> line(static_cast<std::string*>(m_lines.pop(timeout)));
            if (line->empty())
                return;
            std::puts(line->c_str());
        }
    }

private:
    AL::QueueVoid m_lines;
};
//! [example]

int main()
{
    Printer printer;
    printer.start();
    printer.print(std::unique_ptr<std::string>(new std::string("first")));
    printer.print(std::unique_ptr<std::string>(new std::string("second")));
    printer.finish();
}
