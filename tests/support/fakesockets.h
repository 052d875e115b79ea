#ifndef TESTS_SUPPORT_FAKESOCKETS_H
#define TESTS_SUPPORT_FAKESOCKETS_H

#include <map>
#include <string>

#include "tests/support/journal.h"

namespace testsupport {

/**
 * During its lifetime, records the socket calls of the process, and answers those that a test chooses. All others go to
 * the system. Example of a conversation:
 *
 *     socket tcp | connect 127.0.0.1:80 | bind 0.0.0.0:80 | listen 10 | accept | send 4 | recv 4 | setsockopt
 *
 * Unusual arguments follow: an address length other than 16 bytes, padding or flags other than 0.
 */
class FakeSockets
{
public:
    FakeSockets();
    ~FakeSockets();
    FakeSockets(const FakeSockets&) = delete;
    FakeSockets& operator=(const FakeSockets&) = delete;

    /// Every call with this name ("bind") only returns @p result and sets errno to @p error.
    FakeSockets& answers(const std::string& call, long result, int error = 0);
    /// Every call with this name fails with @p error.
    FakeSockets& fails(const std::string& call, int error) { return answers(call, -1, error); }
    /// Calls with this name go to the system again.
    FakeSockets& passesOn(const std::string& call);

    /// From now on each call is also printed to standard error, one per line.
    void echo() { m_journal.echo(); }

    /// The calls so far, separated by "; ".
    std::string conversation() const { return join(m_journal.all(), "; "); }
    /// The descriptor from the system's last socket() or accept(); -1 before the first.
    int newestDescriptor() const { return m_newestDescriptor; }

    struct Answer
    {
        long result;
        int error;
    };
    /// The buffer of the last recv().
    const void* newestBuffer() const { return m_newestBuffer; }

    /// For the faked calls: records one and returns its answer, or null if it goes to the system.
    const Answer* take(const std::string& call, const std::string& details);
    void made(int descriptor) { m_newestDescriptor = descriptor; }
    void receivesInto(const void* buffer) { m_newestBuffer = buffer; }

private:
    Journal m_journal;
    std::map<std::string, Answer> m_answers;
    int m_newestDescriptor = -1;
    const void* m_newestBuffer = nullptr;
};

/// True if the process has that descriptor open.
bool isOpenDescriptor(int descriptor);

} // namespace testsupport

#endif
