#ifndef TESTS_SUPPORT_OBSERVEDTHREAD_H
#define TESTS_SUPPORT_OBSERVEDTHREAD_H

#include <atomic>
#include <functional>
#include <sys/types.h>
#include <thread>

namespace testsupport {

/**
 * A thread whose blocking can be observed. A test that needs "the other thread now waits inside lock()" starts one with
 * `lock()` as its body and calls waitUntilItSleeps().
 *
 * Threads: for use by the thread that created the object; the destructor joins.
 */
class ObservedThread
{
public:
    explicit ObservedThread(std::function<void()> body);
    ~ObservedThread() { join(); }
    ObservedThread(const ObservedThread&) = delete;
    ObservedThread& operator=(const ObservedThread&) = delete;

    /// Waits until the kernel has put the body to sleep. Returns at once if the body has ended.
    void waitUntilItSleeps() const;
    bool hasEnded() const { return m_hasEnded; }
    /// Waits until the body has ended. Joining twice is allowed.
    void join();

private:
    std::atomic<pid_t> m_id{0}; // 0 until the thread runs
    std::atomic<bool> m_hasEnded{false};
    std::thread m_thread; // last: it uses the others
};

/// Waits until the kernel has put the only thread of another process to sleep.
void waitUntilProcessSleeps(pid_t process);
bool isProcessAsleep(pid_t process);

} // namespace testsupport

#endif
