#ifndef TESTS_SUPPORT_FAKESOCKETS_H
#define TESTS_SUPPORT_FAKESOCKETS_H

#include <map>
#include <string>

#include "tests/support/journal.h"

namespace testsupport {

/**
 * Writes down the socket calls of the process, for as long as it lives, and answers those that a test chooses. All
 * others go on to the system. The conversation reads
 *
 *     socket tcp | connect 127.0.0.1:80 | bind 0.0.0.0:80 | listen 10 | accept | send 4 | recv 4 | setsockopt
 *
 * with what is out of the ordinary behind it: an address length other than 16 bytes, padding or flags other than 0.
 */
class FakeSockets
{
public:
    FakeSockets();
    ~FakeSockets();
    FakeSockets(const FakeSockets&) = delete;
    FakeSockets& operator=(const FakeSockets&) = delete;

    /// Every call of that name ("bind") returns @p result and does nothing; errno is @p error then.
    FakeSockets& answers(const std::string& call, long result, int error = 0);
    /// Every call of that name fails with @p error.
    FakeSockets& fails(const std::string& call, int error) { return answers(call, -1, error); }
    /// Calls of that name go on to the system again.
    FakeSockets& passesOn(const std::string& call);

    /// From now on each call is also written to standard error, a line each.
    void echo() { m_journal.echo(); }

    /// The calls so far, separated by "; ".
    std::string conversation() const { return join(m_journal.all(), "; "); }
    /// The descriptor that the system's last socket() or accept() made; -1 before that.
    int newestDescriptor() const { return m_newestDescriptor; }

    struct Answer
    {
        long result;
        int error;
    };
    /// Where the last recv() was asked to put what it receives.
    const void* newestBuffer() const { return m_newestBuffer; }

    /// For the faked calls: writes one down and returns the answer to it, or null if it goes on to the system.
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
