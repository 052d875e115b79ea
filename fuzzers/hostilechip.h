#ifndef FUZZERS_HOSTILECHIP_H
#define FUZZERS_HOSTILECHIP_H

#include <vector>

#include "fuzzers/input.h"
#include "tests/support/fakenode.h"

/**
 * The i2c-dev node of a chip that does what the input says. Before each transfer it takes a byte for what becomes of
 * it:
 *
 *     0 to 0x3f     all of it; a read then takes its bytes from the input
 *     0x40 to 0x7f  a part of it; the next two bytes give its length
 *     0x80 to 0xbf  nothing: the result is 0
 *     0xc0 to 0xef  refused, with the errno that the lower four bits choose
 *     0xf0 to 0xfe  refused, as are its 99 retries: the operation learns of it, and the next transfer has a byte again
 *     0xff          refused, like every other until the operation is over: the retries cost no input
 *
 * The same goes for the opening of the node and the selection of the address, of which there is no part.
 *
 * Pauses do not take time, and the lock is never waited for. What no operation may do ends the process, as the
 * sanitizers do when a byte too many is touched: to leave with the lock still taken, to give it back twice, to try a
 * message more than a hundred times, and to send more messages than the longest operation has.
 */
class HostileChip : public testsupport::FakeNode
{
public:
    /// No operation has more messages than that.
    explicit HostileChip(int mostMessages);
    ~HostileChip() override;
    HostileChip(const HostileChip&) = delete;
    HostileChip& operator=(const HostileChip&) = delete;

    /// From now on the chip follows @p input, which is not owned; null: no more operations follow.
    void obeys(Input* input) { m_input = input; }
    /// Between two operations.
    void operationIsOver();

    /// Of the operation: the last register that was written to, what was read last, and the sum of the results of all
    /// reads, as the operation sees them.
    int lastRegister() const { return m_register; }
    const std::vector<unsigned char>& lastRead() const { return m_lastRead; }
    int sumOfReads() const { return m_sumOfReads; }
    int messages() const { return m_messages; }
    bool isOpen() const { return m_isOpen; }

    /// Whether the next transactions are refused.
    void refuseTransactions(bool refuses) { m_refusesTransactions = refuses; }
    bool refusesTransactions() const { return m_refusesTransactions; }

    bool answersForPausesAndLocks() override { return true; }
    int open(const char* path, int flags) override;
    int ioctl(int descriptor, unsigned long request, unsigned long argument) override;
    ssize_t read(int descriptor, void* data, std::size_t count) override;
    ssize_t write(int descriptor, const void* data, std::size_t count) override;
    int close(int descriptor) override;
    int changeSemaphore(int delta) override;

private:
    ssize_t resultOf(std::size_t count);
    int resultOfOpening();
    void note(bool isRead, const void* data, std::size_t count);
    ssize_t concluded(ssize_t result, std::size_t count);
    void forgetOperation();

    Input* m_input = nullptr;
    bool m_refusesAll = false;
    int m_refusals = 0; // still to come
    int m_error = 0;
    int m_taken = 0; // locks
    bool m_isOpen = false;
    bool m_refusesTransactions = false;

    const int m_mostMessages;
    std::vector<unsigned char> m_message; // of the call before, and whether it was a read
    bool m_wasRead = false;
    bool m_hasFailed = false; // the call before
    int m_attempts = 0;       // of that message
    int m_messages = 0;       // of the operation
    int m_register = -1;
    std::vector<unsigned char> m_lastRead;
    int m_sumOfReads = 0;
};

#endif
