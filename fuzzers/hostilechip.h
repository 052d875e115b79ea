#ifndef FUZZERS_HOSTILECHIP_H
#define FUZZERS_HOSTILECHIP_H

#include <vector>

#include "fuzzers/input.h"
#include "tests/support/systemcalls.h"

/**
 * The i2c-dev node of a chip that does what the input says. Before each transfer it takes a byte for what becomes of
 * it:
 *
 *     0 to 0x3f     all of it; a read then takes its bytes from the input
 *     0x40 to 0x7f  a part of it, of so many bytes as the next two tell
 *     0x80 to 0xbf  nothing: the result is 0
 *     0xc0 to 0xef  refused
 *     0xf0 to 0xfe  refused, as are its 99 retries: the operation learns of it, and the next transfer has a byte again
 *     0xff          refused, like every other until the operation is over: the retries cost no input
 *
 * Pauses do not take time, and the lock is never waited for. An operation that leaves with the lock still taken, or
 * gives it back twice, ends the process, as the sanitizers do when a byte too many is touched.
 */
class HostileChip : public SystemCallHandler
{
public:
    static constexpr const char* kPath = "/dev/i2c-7";
    static constexpr int kAddress = 0x2a;

    HostileChip();
    ~HostileChip() override;
    HostileChip(const HostileChip&) = delete;
    HostileChip& operator=(const HostileChip&) = delete;

    /// From now on the chip does what @p input says, which is not owned; null when there will be no more operations.
    void obeys(Input* input) { m_input = input; }
    /// Between two operations.
    void operationIsOver();

    bool answersFor(const char* path) override;
    bool answersFor(int descriptor) override;
    bool answersForPausesAndLocks() override { return true; }
    int open(const char* path, int flags) override;
    int ioctl(int descriptor, unsigned long request, unsigned long argument) override;
    ssize_t read(int descriptor, void* data, std::size_t count) override;
    ssize_t write(int descriptor, const void* data, std::size_t count) override;
    int close(int descriptor) override;
    int usleep(unsigned microseconds) override;
    int changeSemaphore(int delta) override;

private:
    ssize_t resultOf(std::size_t count);

    Input* m_input = nullptr;
    bool m_refusesAll = false;
    int m_refusals = 0;                   // still to come
    int m_taken = 0;                      // locks
    std::vector<unsigned char> m_message; // that was written last
};

#endif
