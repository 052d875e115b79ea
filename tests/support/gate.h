#ifndef TESTS_SUPPORT_GATE_H
#define TESTS_SUPPORT_GATE_H

#include <condition_variable>
#include <mutex>

namespace testsupport {

/// A gate between the threads of a test, closed at first. A thread that passes sees everything done before it opened.
class Gate
{
public:
    /// Lets every waiting thread through, and every later one. Opening twice is allowed.
    void open()
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_isOpen = true;
        m_opened.notify_all();
    }

    /// Waits without limit until the gate is open.
    void pass()
    {
        std::unique_lock<std::mutex> guard(m_mutex);
        m_opened.wait(guard, [this] { return m_isOpen; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_isOpen = false; // guarded by m_mutex
};

} // namespace testsupport

#endif
