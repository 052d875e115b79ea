#ifndef TESTS_EXCLUSION_SHAREDCHIP_H
#define TESTS_EXCLUSION_SHAREDCHIP_H

#include <array>
#include <memory>
#include <vector>

#include <abstractionlibrary/types.h>

#include "tests/exclusion/arbiter.h"
#include "tests/support/fakenode.h"

/**
 * A chip in memory that processes share: registers with a fixed content, but for the answer to a challenge, which
 * depends on the challenge. Trusts its callers to be ordered; its arbiter sees when they are not.
 */
class SharedChip
{
public:
    using U8 = VorelKestrel::AL::U8;

    /// What reads of a register deliver; none of its bytes is beyond the 128th.
    void holds(U8 reg, const std::vector<U8>& content);
    std::size_t read(U8* data, std::size_t count) const;
    void write(const U8* message, std::size_t count);

    /// The answer to a challenge with this byte at this position.
    static U8 answerTo(U8 challengeByte) { return static_cast<U8>(challengeByte ^ 0xa5U); }

    Arbiter arbiter;

private:
    struct Register
    {
        std::size_t length = 0;
        std::array<U8, 128> content{};
    };

    U8 m_register = 0; // that the last message named
    std::array<Register, 0x40> m_registers;
    std::array<U8, 32> m_challenge{};
};

/// The memory that the chip lives in: made by the test, and found by a worker through the descriptor it inherits.
class SharedChipMemory
{
public:
    SharedChipMemory();
    explicit SharedChipMemory(int descriptor);
    ~SharedChipMemory();
    SharedChipMemory(const SharedChipMemory&) = delete;
    SharedChipMemory& operator=(const SharedChipMemory&) = delete;

    int descriptor() const { return m_descriptor; }
    SharedChip& chip() const { return *m_chip; }

private:
    int m_descriptor;
    SharedChip* m_chip; // owned, in the mapped memory
};

/// One thread of a process that uses the chip. Tells the arbiter which thread's transfers arrive.
class ChipUser
{
public:
    ChipUser(SharedChip& chip, int process, int thread);

    /// The next operation of this thread, and its transfers.
    void begins(int kind, int transfers);
    void ends(bool answerIsRight);

    void transferBegins();
    void transferEnds();

private:
    Arbiter& m_arbiter;
    Turn m_turn;
    int m_transfers = 0; // of the operation
    std::chrono::steady_clock::time_point m_beginning;
};

/// The chip's i2c-dev node in a process that uses it. Each thread of the process attends before its first call.
class SharedChipNode : public testsupport::FakeNode
{
public:
    enum class Locks
    {
        Real,
        Ignored ///< every lock is taken at once, to see the arbiter notice
    };

    SharedChipNode(SharedChip& chip, Locks locks);
    ~SharedChipNode() override;
    SharedChipNode(const SharedChipNode&) = delete;
    SharedChipNode& operator=(const SharedChipNode&) = delete;

    static void attends(ChipUser& user);

    bool answersForPausesAndLocks() override { return m_locks == Locks::Ignored; }
    ssize_t read(int descriptor, void* data, std::size_t count) override;
    ssize_t write(int descriptor, const void* data, std::size_t count) override;

private:
    SharedChip& m_chip;
    const Locks m_locks;
};

#endif
