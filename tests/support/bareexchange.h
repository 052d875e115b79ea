#ifndef TESTS_SUPPORT_BAREEXCHANGE_H
#define TESTS_SUPPORT_BAREEXCHANGE_H

#include <functional>
#include <vector>

#include "tests/support/instantdevice.h"

namespace testsupport {

/// The floor for the cost of an operation: a loop that only makes the same system calls with the same bytes (lock,
/// transfers, unlock).
class BareExchange
{
public:
    /// Learns the messages from one call of @p operation.
    BareExchange(InstantDevice& device, const std::function<void()>& operation);
    ~BareExchange();
    BareExchange(const BareExchange&) = delete;
    BareExchange& operator=(const BareExchange&) = delete;

    const std::vector<RecordedMessage>& messages() const { return m_messages; }

    /// Runs the exchange on @p descriptor, an open node with a selected address. Threads: any.
    void run(int descriptor) const;
    /// The same with the buffers that the library's interface needs: a new one for each message with data, and one for
    /// the answer, which is the last message.
    void runWithBuffers(int descriptor) const;

private:
    std::vector<RecordedMessage> m_messages;
    const int m_semaphores; // a set of one, for this object alone
};

} // namespace testsupport

#endif
