#ifndef TESTS_SUPPORT_FAKEBUS_H
#define TESTS_SUPPORT_FAKEBUS_H

#include <climits>
#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <abstractionlibrary/types.h>

#include "common/bytes.h"
#include "tests/support/fakenode.h"
#include "tests/support/journal.h"

namespace testsupport {

using VorelKestrel::Bytes;

/**
 * The bus of all tests: an i2c-dev node with one chip behind it whose registers are set up in words, a clock that never
 * sleeps and the system-wide lock. It answers the library's system calls and writes each of them into the journal:
 *
 *     open /dev/i2c-7 | select 2a | lock | unlock | write 30 | read 2 | sleep 10000 | close
 *
 * A message of one byte sets the register that the next read delivers, as on the real chip; a longer one also
 * changes nothing else: the fake scripts one exchange and does not behave like a chip.
 *
 * Of several faults the first in this order is the answer; the later ones are not used up:
 *
 *                     | a write                            | a read
 *     its own result  | answersWrites()                    | answersReads()
 *     the register's  | refusesRegister() or refusesData() | failsReadsOf()
 *     any message's   | refusesWrites()                    | failsReads(); a register without content fails, too
 *     too short       | takesOnly()                        | deliversOnly()
 */
class FakeBus : public FakeNode
{
public:
    using U8 = VorelKestrel::AL::U8;

    static constexpr int kForever = -1;
    static constexpr int kAsItIs = INT_MIN; ///< in place of a result: what the rest of the set-up makes of the call

    explicit FakeBus(Journal& journal);
    ~FakeBus() override;
    FakeBus(const FakeBus&) = delete;
    FakeBus& operator=(const FakeBus&) = delete;

    // Set-up in words. A count of kForever never ends; the registers' own faults count before the general ones.
    FakeBus& holds(U8 reg, Bytes content);                   ///< what reads of a register deliver
    FakeBus& holdsCertificate(const Bytes& certificate);     ///< in pages from register 0x31, and its length in 0x30
    FakeBus& refusesToOpen(int error);                       ///< the node
    FakeBus& refusesAddress(int error);                      ///< I2C_SLAVE
    FakeBus& answersOpen(int result);                        ///< 0 is a descriptor, too
    FakeBus& answersSelect(int result);                      ///< I2C_SLAVE
    FakeBus& refusesWrites(int times);                       ///< the next messages, whatever they are, with ENXIO
    FakeBus& refusesRegister(U8 reg, int times = kForever);  ///< messages that are this register number alone
    FakeBus& refusesData(U8 reg, int times = kForever);      ///< messages to this register with data behind it
    FakeBus& takesOnly(U8 reg, int bytes);                   ///< write reports so many bytes of a message with data
    FakeBus& failsReads(int times, int error = 5 /* EIO */); ///< the next reads, whatever they are
    FakeBus& failsReadsOf(U8 reg, int times = kForever);     ///< the reads of this register, with EIO
    FakeBus& deliversOnly(U8 reg, int bytes);                ///< read reports (and fills) so many bytes
    FakeBus& answersWrites(const std::vector<int>& results); ///< the next calls, in this order; -1 is ENXIO
    FakeBus& answersReads(const std::vector<int>& results);  ///< -1 is EIO; what the chip does not hold is 0xff
    FakeBus& forwardsTransfers();                            ///< each transfer enters the kernel once, on /dev/zero
    FakeBus& keepsNoJournal();                               ///< from now on: nothing grows, and it is quick
    /// What happens once, while the next call is answered that the journal has under that name: "unlock".
    FakeBus& during(const std::string& call, std::function<void()> action);

    /// The system calls since construction or forget(), separated by "; ".
    std::string conversation() const;
    /// Starts the journal anew.
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
    /// Writes the call down that @p describe puts into words.
    template<typename Describe>
    void record(Describe describe)
    {
        if (m_keepsJournal)
            writeDown(describe());
    }
    void writeDown(const std::string& call);

    /// The errno with which the register's fault or the general one meets a message; 0: none does.
    int errorOfRead();
    int errorOfWrite(U8 reg, bool withData);
    /// Reads the content of the register, or as much of it as deliversOnly() says.
    ssize_t deliver(U8* data, std::size_t count) const;
    /// A read whose result was given, whatever the register holds.
    ssize_t deliverGiven(std::size_t given, U8* data, std::size_t count) const;

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
