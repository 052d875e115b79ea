#include "tests/exclusion/sharedchip.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sched.h>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace {

using U8 = SharedChip::U8;

constexpr U8 kControlAndStatus = 0x10;
constexpr U8 kResponse = 0x12;
constexpr U8 kChallenge = 0x21;

thread_local ChipUser* g_user = nullptr; // not owned

int withContent(int descriptor)
{
    if (descriptor == -1 || ftruncate(descriptor, sizeof(SharedChip)) != 0)
        throw std::system_error(errno, std::generic_category(), "memory for the chip");
    return descriptor;
}

void* mapped(int descriptor)
{
    void* const memory = mmap(nullptr, sizeof(SharedChip), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED)
        throw std::system_error(errno, std::generic_category(), "the chip's memory");
    return memory;
}

} // namespace

void SharedChip::holds(U8 reg, const std::vector<U8>& content)
{
    Register& place = m_registers.at(reg);
    place.length = content.size();
    std::copy(content.begin(), content.end(), place.content.begin());
}

std::size_t SharedChip::read(U8* data, std::size_t count) const
{
    const Register& place = m_registers.at(m_register);
    const std::size_t delivered = std::min(count, place.length);
    std::copy_n(place.content.begin(), delivered, data);
    return delivered;
}

void SharedChip::write(const U8* message, std::size_t count)
{
    m_register = message[0];
    if (m_register == kChallenge)
        std::copy_n(message + 1, std::min(count - 1, m_challenge.size()), m_challenge.begin());
    if (m_register == kControlAndStatus && count > 1) {
        for (std::size_t i = 0; i < m_challenge.size(); ++i)
            m_registers.at(kResponse).content.at(i) = answerTo(m_challenge.at(i));
    }
}

SharedChipMemory::SharedChipMemory()
    : m_descriptor(withContent(memfd_create("chip", 0))), m_chip(new (mapped(m_descriptor)) SharedChip)
{}

SharedChipMemory::SharedChipMemory(int descriptor)
    : m_descriptor(descriptor), m_chip(static_cast<SharedChip*>(mapped(descriptor)))
{}

SharedChipMemory::~SharedChipMemory()
{
    munmap(m_chip, sizeof(SharedChip));
    ::close(m_descriptor);
}

ChipUser::ChipUser(SharedChip& chip, int process, int thread) : m_arbiter(chip.arbiter)
{
    m_turn.process = static_cast<std::uint16_t>(process);
    m_turn.thread = static_cast<std::uint8_t>(thread);
}

void ChipUser::begins(int kind, int transfers)
{
    m_turn.kind = static_cast<std::uint8_t>(kind);
    ++m_turn.number;
    m_turn.remaining = static_cast<std::uint16_t>(transfers);
    m_transfers = transfers;
    m_beginning = std::chrono::steady_clock::now();
}

void ChipUser::ends(bool answerIsRight)
{
    if (!answerIsRight)
        m_arbiter.answerIsWrong(m_turn);
    m_arbiter.operationEnds(m_turn);
}

void ChipUser::transferBegins()
{
    m_arbiter.transferBegins(m_turn, m_turn.remaining == m_transfers, std::chrono::steady_clock::now() - m_beginning);
}

void ChipUser::transferEnds()
{
    m_arbiter.transferEnds(m_turn);
    --m_turn.remaining;
}

SharedChipNode::SharedChipNode(SharedChip& chip, Locks locks) : m_chip(chip), m_locks(locks)
{
    SystemCallHandler::install(this);
}

SharedChipNode::~SharedChipNode()
{
    SystemCallHandler::install(nullptr);
}

void SharedChipNode::attends(ChipUser& user)
{
    g_user = &user;
}

ssize_t SharedChipNode::read(int /*descriptor*/, void* data, std::size_t count)
{
    g_user->transferBegins();
    const std::size_t delivered = m_chip.read(static_cast<U8*>(data), count);
    sched_yield(); // like a slow transfer, so that a process that is not locked out gets in
    g_user->transferEnds();
    return static_cast<ssize_t>(delivered);
}

ssize_t SharedChipNode::write(int /*descriptor*/, const void* data, std::size_t count)
{
    g_user->transferBegins();
    m_chip.write(static_cast<const U8*>(data), count);
    sched_yield();
    g_user->transferEnds();
    return static_cast<ssize_t>(count);
}
