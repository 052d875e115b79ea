#ifndef TESTS_SUPPORT_FAKEBUS_H
#define TESTS_SUPPORT_FAKEBUS_H

#include <climits>
#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <abstractionlibrary/types.h>

#include "common/bytes.h"
#include "tests/support/fakenode.h"
#include "tests/support/journal.h"

namespace testsupport {

using VorelKestrel::Bytes;

constexpr int kPageSize = 128; // of the certificate, in bytes

/**
 * The bus of all tests: an i2c-dev node with one chip behind it, a clock that never sleeps, and the system-wide lock.
 * It answers the library's system calls and writes each of them into the journal:
 *
 *     open /dev/i2c-7 | select 2a | lock | unlock | write 30 | read 2 | sleep 10000 | close
 *
 * A message of one byte selects the register that the next read delivers, as on the real chip. A longer one does the
 * same and changes nothing else: the fake scripts one exchange and does not behave like a chip.
 *
 * If several faults apply to a transfer, kFaults says which one it meets.
 */
class FakeBus : public FakeNode
{
public:
    using U8 = VorelKestrel::AL::U8;

    static constexpr int kForever = -1;
    static constexpr int kAsItIs = INT_MIN; ///< in place of a result: the rest of the set-up decides

    explicit FakeBus(Journal& journal);
    ~FakeBus() override;
    FakeBus(const FakeBus&) = delete;
    FakeBus& operator=(const FakeBus&) = delete;

    // Set-up in words. A count of kForever never ends.
    FakeBus& holds(U8 reg, Bytes content);               ///< what reads of a register deliver
    FakeBus& holdsCertificate(const Bytes& certificate); ///< in pages from register 0x31, and its length in 0x30
    FakeBus& refusesToOpen(int error);                   ///< the node
    FakeBus& refusesAddress(int error);                  ///< I2C_SLAVE
    FakeBus& answersOpen(int result);                    ///< 0 is a descriptor, too
    FakeBus& answersSelect(int result);                  ///< I2C_SLAVE
    FakeBus& refusesWrites(int times, int error = 6 /* ENXIO */); ///< the next messages of any kind
    FakeBus& refusesRegister(U8 reg, int times = kForever);       ///< messages that are this register number alone
    FakeBus& refusesData(U8 reg, int times = kForever);           ///< messages to this register with data behind it
    FakeBus& takesOnly(U8 reg, int bytes);                        ///< write() returns this for a message with data
    FakeBus& failsReads(int times, int error = 5 /* EIO */);      ///< the next reads of any register
    FakeBus& failsReadsOf(U8 reg, int times = kForever);          ///< the reads of this register, with EIO
    FakeBus& deliversOnly(U8 reg, int bytes);                     ///< read() returns and fills at most this many
    FakeBus& answersWrites(const std::vector<int>& results);      ///< the next calls, in this order; -1 is ENXIO
    FakeBus& answersReads(const std::vector<int>& results);       ///< -1 is EIO; bytes that the register lacks are 0xff
    FakeBus& forwardsTransfers(); ///< each transfer enters the kernel once, on /dev/zero
    FakeBus& keepsNoJournal();    ///< from now on; fast, and no memory grows
    /// Runs @p action once, during the next call that the journal names like this, for example "unlock".
    FakeBus& during(const std::string& call, std::function<void()> action);

    /// The system calls since construction or forget(), separated by "; ".
    std::string conversation() const;
    /// Clears the journal.
    void forget() { m_journal.clear(); }

    /// The node's descriptors that are open, oldest first.
    std::set<int> openDescriptors() const { return m_open; }
    /// True while a transaction is held.
    bool isLocked() const { return m_tokens == 0; }

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
    /// Adds the text that @p describe returns to the journal.
    template<typename Describe>
    void record(Describe describe)
    {
        if (m_keepsJournal)
            writeDown(describe());
    }
    void writeDown(const std::string& call);

    /// A transfer for which a fault is sought.
    struct Transfer
    {
        U8 reg;
        std::size_t count;
        U8* data; // of a read
    };
    using Result = std::optional<ssize_t>; // of a transfer that met a fault; errno is set with -1
    using Fault = Result (FakeBus::*)(const Transfer&);
    struct FaultRow
    {
        Fault write;
        Fault read;
    };
    static const FaultRow kFaults[];
    Result firstFault(Fault FaultRow::*kind, const Transfer& transfer);
    Result givenWrite(const Transfer& transfer);
    Result givenRead(const Transfer& transfer);
    Result refusedByRegister(const Transfer& transfer);
    Result failedByRegister(const Transfer& transfer);
    Result refused(const Transfer& transfer);
    Result failed(const Transfer& transfer);
    Result shortWrite(const Transfer& transfer);
    Result shortRead(const Transfer& transfer);
    ssize_t deliver(const Transfer& transfer) const;
    ssize_t deliverGiven(std::size_t given, const Transfer& transfer) const;

    Journal& m_journal;
    bool m_keepsJournal = true;
    std::set<int> m_open;
    int m_tokens = 1; // of the lock
    int m_forward = -1;
    U8 m_register = 0;
    std::map<U8, Bytes> m_content;
    std::map<std::string, std::function<void()>> m_actions;
    int m_openError = 0;
    int m_openResult = kAsItIs;
    int m_addressError = 0;
    int m_addressResult = kAsItIs;
    int m_refusedWrites = 0;
    int m_writeError = 0;
    std::map<U8, int> m_refusedRegisters;
    std::map<U8, int> m_refusedData;
    std::map<U8, int> m_shortWrites;
    int m_failedReads = 0;
    int m_readError = 0;
    std::map<U8, int> m_failedReadsOf;
    std::map<U8, int> m_shortReads;
    std::deque<int> m_writeResults;
    std::deque<int> m_readResults;
};

/// Bytes as the journal writes them: "21 01 ff".
std::string hex(const Bytes& bytes);

/// Bytes first, first + 1, ...: content that shows a byte out of place.
Bytes counting(std::size_t count, unsigned first = 0);

} // namespace testsupport

#endif
