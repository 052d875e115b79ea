#ifndef TOOL_LOCK_LOCKWATCH_H
#define TOOL_LOCK_LOCKWATCH_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "tool/lock/systemlock.h"
#include "tool/report/exitstatus.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/**
 * Says on standard error what the library keeps to itself: that it waits for the lock between processes, and for whom,
 * and that it does without the lock.
 *
 * Threads: a thread of its own looks at the lock while a call of the library's runs; it takes no part in it.
 * Errors:  when the time limit has passed, the process says so and ends, without its destructors: the call that waits
 *          cannot be aborted.
 */
class LockWatch
{
public:
    /// Says why the process ends, flushes what it has written, and returns the exit status. The thread that called the
    /// library does not come out of its Call meanwhile.
    using GiveUp = std::function<ExitStatus(const Failure&)>;

    /// Requires: the library is loaded, and has made or found the lock. Without @p limit it waits as long as it takes.
    LockWatch(const std::string& device, std::optional<std::chrono::seconds> limit, GiveUp giveUp);
    LockWatch(const LockWatch&) = delete;
    LockWatch& operator=(const LockWatch&) = delete;
    ~LockWatch();

    /// A call of the library's, from construction to the end of the scope.
    class Call
    {
    public:
        explicit Call(LockWatch& watch) : m_watch(watch) { m_watch.setInCall(true); }
        ~Call() { m_watch.setInCall(false); }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        LockWatch& m_watch;
    };

private:
    using Clock = std::chrono::steady_clock;

    void setInCall(bool inCall);
    void watch();
    void look();

    const std::string m_keyFile = lockKeyFile();
    const std::optional<std::chrono::seconds> m_limit;
    const GiveUp m_giveUp;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isInCall = false; // guarded by m_mutex, as is m_ends
    bool m_ends = false;
    std::optional<Clock::time_point> m_waitingSince; // only the thread touches it, and m_hasTold
    bool m_hasTold = false;
    std::thread m_thread; // last: it uses all the others
};

/// Why the library's processes of this user do without the lock that those on the bus have; empty: they have it.
struct WithoutLock
{
    std::string reason;
    std::string next;
};
WithoutLock findWithoutLock(const LockState& state, const std::string& device);

} // namespace VorelKestrel::Tool

#endif
