#ifndef TESTS_SUPPORT_CHILDPROCESS_H
#define TESTS_SUPPORT_CHILDPROCESS_H

#include <array>
#include <csignal>
#include <functional>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "common/scopeddescriptor.h"
#include "tests/support/observedthread.h"

namespace testsupport {

/// Messages of one byte between two processes.
class Channel
{
public:
    Channel()
    {
        std::array<int, 2> ends = {-1, -1};
        EXPECT_EQ(0, pipe(ends.data()));
        m_reading = VorelKestrel::ScopedDescriptor(ends[0]);
        m_writing = VorelKestrel::ScopedDescriptor(ends[1]);
    }

    void say(char word = 0) const { EXPECT_EQ(1, write(m_writing.get(), &word, 1)); }
    char hear() const
    {
        char word = 0;
        EXPECT_EQ(1, read(m_reading.get(), &word, 1));
        return word;
    }
    /// Redirects this process's standard output and error to this channel.
    void takeOutputs() const
    {
        EXPECT_NE(-1, dup2(m_writing.get(), STDOUT_FILENO));
        EXPECT_NE(-1, dup2(m_writing.get(), STDERR_FILENO));
    }
    /// True if hear() would not wait.
    bool hasWord() const
    {
        pollfd reading = {m_reading.get(), POLLIN, 0};
        return poll(&reading, 1, 0) == 1;
    }

private:
    VorelKestrel::ScopedDescriptor m_reading;
    VorelKestrel::ScopedDescriptor m_writing;
};

/// A child process that runs @p body and exits without the usual clean-up.
class ChildProcess
{
public:
    explicit ChildProcess(const std::function<void()>& body) : m_id(fork())
    {
        if (m_id != 0)
            return;
        body();
        _exit(0);
    }
    ~ChildProcess() { join(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void waitUntilItSleeps() const { waitUntilProcessSleeps(m_id); }
    bool isAsleep() const { return isProcessAsleep(m_id); }

    /// Checks without waiting whether it has ended; then there is nothing to join.
    bool hasEnded()
    {
        int status = -1;
        if (m_id > 0 && waitpid(m_id, &status, WNOHANG) == m_id) {
            EXPECT_EQ(0, status);
            m_id = 0;
        }
        return m_id <= 0;
    }

    void kill()
    {
        if (m_id <= 0)
            return;
        ::kill(m_id, SIGKILL);
        waitpid(m_id, nullptr, 0);
        m_id = 0;
    }

    void join()
    {
        if (m_id <= 0)
            return;
        int status = -1;
        waitpid(m_id, &status, 0);
        EXPECT_EQ(0, status);
        m_id = 0;
    }

private:
    pid_t m_id;
};

} // namespace testsupport

#endif
