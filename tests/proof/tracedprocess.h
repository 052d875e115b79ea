#ifndef TESTS_PROOF_TRACEDPROCESS_H
#define TESTS_PROOF_TRACEDPROCESS_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include <sys/types.h>

/// What a process asks of the system as far as the lock is concerned. The names are those of the steps in
/// proof/lock.pml.
enum class LockCall
{
    Open,
    Stat,
    Create,
    Attach,
    Fill,
    Take,
    Enter,
    Leave,
    Give,
    Unlink,
    Remove,
    Exit,
    Draft,
    Place,
    UnlinkDraft,
    Replace
};

const char* nameOf(LockCall call);

/// A host's marks for entering and leaving: valid system calls that it does not make otherwise.
void markEntry();
void markExit();

/**
 * A process that is stopped before each of its calls of LockCall and waits there until it is told to go on or is
 * killed.
 *
 * Errors: std::runtime_error if the system does not let a process be traced, see isTracingPossible().
 */
class TracedProcess
{
public:
    /// After each stat() of a file: may give it another inode number, which is what the process then sees.
    using InodeOfFile = std::function<std::uint64_t(std::uint64_t)>;

    /// @p body runs in a child process, until it returns or executes a program.
    TracedProcess(const std::function<void()>& body, const std::string& keyFile, InodeOfFile inodeOf);
    ~TracedProcess();
    TracedProcess(const TracedProcess&) = delete;
    TracedProcess& operator=(const TracedProcess&) = delete;

    static bool isTracingPossible();

    /// Lets it run to its next call, and stops it there. Returns the same until the call has been made.
    LockCall next();
    /// Has the call made. Returns its result, or the error as a negative number. Requires: next() was called.
    long perform();
    /// The path or the semaphore that the call is about.
    const std::string& path() const { return m_path; }
    int status() const { return static_cast<int>(m_arguments[0]); } // of an exit
    int semaphore() const { return static_cast<int>(m_arguments[0]); }
    /// Has the call begun, and returns when the process sleeps in it. It can only be killed then.
    void sleepIn();
    void kill();
    bool hasEnded() const { return m_id == 0; }

private:
    bool isFileCall(std::uint64_t number);
    bool isSemaphoreCall(std::uint64_t number);
    void answerStat(long number, long result) const;
    void resume(bool toSystemCall) const;
    std::string readText(std::uint64_t address) const;

    pid_t m_id;
    const std::string m_keyFile;
    const InodeOfFile m_inodeOf;
    bool m_isStopped = false; // before the call below
    LockCall m_call = LockCall::Exit;
    std::array<std::uint64_t, 6> m_arguments{};
    std::string m_path;
};

#endif
