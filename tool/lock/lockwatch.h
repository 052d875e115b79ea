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
 * Reports on standard error what the library does not: that it waits for the lock between processes, which process
 * holds it, or that there is no common lock.
 *
 * Threads: a thread of its own checks the lock while a call of the library runs, without taking it.
 * Errors:  after the time limit, or when Ending::isWanted() says so, the process exits without running destructors,
 *          because the waiting call cannot be aborted.
 */
class LockWatch
{
public:
    /// How a process ends that is waiting for the lock. The thread of the watch calls these functions, and keeps the
    /// waiting thread inside its Call meanwhile. What they return is the exit status; they flush their output.
    struct Ending
    {
        std::function<bool()> isWanted;                   ///< whether to end before the time limit
        std::function<ExitStatus()> leave;                ///< what to do then
        std::function<ExitStatus(const Failure&)> giveUp; ///< what to do at the time limit
    };

    /// Requires: the library is loaded, and has created or found the lock. Without @p limit it waits without limit.
    LockWatch(const std::string& device, std::optional<std::chrono::seconds> limit, Ending ending);
    LockWatch(const LockWatch&) = delete;
    LockWatch& operator=(const LockWatch&) = delete;
    ~LockWatch();

    /// A call of the library, from construction to the end of the scope.
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
    const Ending m_ending;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isInCall = false; // guarded by m_mutex, as is m_ends
    bool m_ends = false;
    std::optional<Clock::time_point> m_waitingSince; // used only by the thread, like m_hasTold
    bool m_hasTold = false;
    std::thread m_thread; // last: it uses all the others
};

/// Why this user's processes do not share the lock of the others on the bus; empty: they share it.
struct WithoutLock
{
    std::string reason;
    std::string next;
};
WithoutLock findWithoutLock(const LockState& state, const std::string& device);

} // namespace VorelKestrel::Tool

#endif
