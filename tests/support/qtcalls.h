#ifndef TESTS_SUPPORT_QTCALLS_H
#define TESTS_SUPPORT_QTCALLS_H

#include <functional>
#include <map>
#include <string>

#include "tests/support/journal.h"

namespace testsupport {

/**
 * During its lifetime, records the calls of its thread to Qt's locks and threads; Qt still executes them. Objects are
 * numbered in the order of creation. Examples:
 *
 *     mutex 1 made | mutex 1 lock | mutex 1 tryLock 0 | mutex 1 unlock | mutex 1 destroyed
 *     semaphore 1 made with 0 | semaphore 1 tryAcquire 1 100 | semaphore 1 release 1 | semaphore 1 destroyed
 *     system semaphore 1 made Wexfordmallow 1 open | system semaphore 1 acquire | system semaphore 1 release 1
 *     thread 1 made | thread 1 start 7 | thread 1 isRunning | thread 1 wait 5000 | thread 1 destroyed
 *
 * Unusual arguments follow: "recursive", "with a parent". For programs that link qtcalls.cpp.
 */
class QtCalls
{
public:
    explicit QtCalls(Journal& journal);
    ~QtCalls();
    QtCalls(const QtCalls&) = delete;
    QtCalls& operator=(const QtCalls&) = delete;

    /// Runs @p action once, before the next call with this name.
    void during(const std::string& call, std::function<void()> action) { m_actions[call] = std::move(action); }

    /// For the calls: one is about to run.
    void take(const char* kind, const void* object, const std::string& what);

private:
    Journal& m_journal;
    std::map<std::string, int> m_made; // by kind
    std::map<const void*, int> m_numbers;
    std::map<std::string, std::function<void()>> m_actions;
};

} // namespace testsupport

#endif
