#include "tests/support/fakebus.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <utility>

namespace testsupport {

namespace {

/// The kernel refuses such counts; negative lengths arrive as them.
bool isTooLarge(std::size_t count)
{
    return count > static_cast<std::size_t>(SSIZE_MAX);
}

int failWith(int error)
{
    errno = error;
    return -1;
}

/// Counts one use of a fault that happens a number of times. False when it is used up.
bool strikes(int& times)
{
    if (times == 0)
        return false;
    if (times != FakeBus::kForever)
        --times;
    return true;
}

bool strikes(std::map<FakeBus::U8, int>& faults, FakeBus::U8 reg)
{
    const auto fault = faults.find(reg);
    return fault != faults.end() && strikes(fault->second);
}

std::string hexNumber(unsigned long number)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%02lx", number);
    return text;
}

/// The result that was set for the next call.
int next(std::deque<int>& results)
{
    if (results.empty())
        return FakeBus::kAsItIs;
    const int result = results.front();
    results.pop_front();
    return result;
}

/// Stops the process with a message where a real bus would wait forever or do what no test asked for.
[[noreturn]] void stop(const std::string& reason)
{
    std::fprintf(stderr, "fake bus: %s\n", reason.c_str());
    std::abort();
}

} // namespace

FakeBus::FakeBus(Journal& journal) : m_journal(journal)
{
    SystemCallHandler::install(this);
}

FakeBus::~FakeBus()
{
    SystemCallHandler::install(nullptr);
    if (m_forward != -1)
        realcalls::close(m_forward);
}

FakeBus& FakeBus::holds(U8 reg, Bytes content)
{
    m_content[reg] = std::move(content);
    return *this;
}

FakeBus& FakeBus::holdsCertificate(const Bytes& certificate)
{
    holds(0x30, {static_cast<U8>(certificate.size() >> 8U), static_cast<U8>(certificate.size())});
    U8 reg = 0x31;
    for (std::size_t start = 0; start < certificate.size(); start += std::size_t{kPageSize}) {
        const auto end = std::min(start + kPageSize, certificate.size());
        holds(reg++, Bytes(certificate.begin() + static_cast<std::ptrdiff_t>(start),
                           certificate.begin() + static_cast<std::ptrdiff_t>(end)));
    }
    return *this;
}

FakeBus& FakeBus::refusesToOpen(int error)
{
    m_openError = error;
    return *this;
}

FakeBus& FakeBus::refusesAddress(int error)
{
    m_addressError = error;
    return *this;
}

FakeBus& FakeBus::answersOpen(int result)
{
    m_openResult = result;
    return *this;
}

FakeBus& FakeBus::answersSelect(int result)
{
    m_addressResult = result;
    return *this;
}

FakeBus& FakeBus::refusesWrites(int times, int error)
{
    m_refusedWrites = times;
    m_writeError = error;
    return *this;
}

FakeBus& FakeBus::refusesRegister(U8 reg, int times)
{
    m_refusedRegisters[reg] = times;
    return *this;
}

FakeBus& FakeBus::refusesData(U8 reg, int times)
{
    m_refusedData[reg] = times;
    return *this;
}

FakeBus& FakeBus::takesOnly(U8 reg, int bytes)
{
    m_shortWrites[reg] = bytes;
    return *this;
}

FakeBus& FakeBus::failsReads(int times, int error)
{
    m_failedReads = times;
    m_readError = error;
    return *this;
}

FakeBus& FakeBus::failsReadsOf(U8 reg, int times)
{
    m_failedReadsOf[reg] = times;
    return *this;
}

FakeBus& FakeBus::deliversOnly(U8 reg, int bytes)
{
    m_shortReads[reg] = bytes;
    return *this;
}

FakeBus& FakeBus::answersWrites(const std::vector<int>& results)
{
    m_writeResults.assign(results.begin(), results.end());
    return *this;
}

FakeBus& FakeBus::answersReads(const std::vector<int>& results)
{
    m_readResults.assign(results.begin(), results.end());
    return *this;
}

FakeBus& FakeBus::forwardsTransfers()
{
    m_forward = realcalls::open("/dev/zero", O_RDWR);
    return *this;
}

FakeBus& FakeBus::keepsNoJournal()
{
    m_keepsJournal = false;
    return *this;
}

FakeBus& FakeBus::during(const std::string& call, std::function<void()> action)
{
    m_actions[call] = std::move(action);
    return *this;
}

void FakeBus::writeDown(const std::string& call)
{
    m_journal.add(Journal::Kind::Call, call);
    const auto action = m_actions.extract(call);
    if (!action.empty())
        action.mapped()();
}

std::string FakeBus::conversation() const
{
    return join(m_journal.only(Journal::Kind::Call), "; ");
}

bool FakeBus::answersFor(const char* path)
{
    return std::strncmp(path, "/dev/i2c-", std::strlen("/dev/i2c-")) == 0;
}

bool FakeBus::answersFor(int descriptor)
{
    constexpr int kNone = -1; // used only by a library that has no device open
    return descriptor >= kDescriptor || descriptor == m_openResult || descriptor == kNone;
}

int FakeBus::open(const char* path, int flags)
{
    record([=] { return std::string("open ") + path + (flags == O_RDWR ? "" : " with other flags"); });
    if (m_openError != 0)
        return failWith(m_openError);
    if (m_openResult != kAsItIs) {
        if (m_openResult >= 0)
            m_open.insert(m_openResult);
        return m_openResult;
    }
    static int lastDescriptor = kDescriptor;
    return *m_open.insert(++lastDescriptor).first;
}

int FakeBus::ioctl(int descriptor, unsigned long request, unsigned long argument)
{
    if (m_open.count(descriptor) == 0)
        stop("ioctl on a closed descriptor");
    record([=] {
        return (request == I2C_SLAVE ? "select " : "ioctl " + hexNumber(request) + " ") +
               hexNumber(static_cast<unsigned>(argument));
    });
    if (m_addressResult != kAsItIs)
        return m_addressResult;
    return m_addressError != 0 ? failWith(m_addressError) : 0;
}

ssize_t FakeBus::read(int descriptor, void* data, std::size_t count)
{
    if (m_open.count(descriptor) == 0)
        stop("read on a closed descriptor");
    record([=] { return "read " + std::to_string(static_cast<ssize_t>(count)); });
    if (isTooLarge(count))
        return failWith(EINVAL);
    if (data == nullptr && count > 0)
        return failWith(EFAULT);
    if (m_forward != -1)
        realcalls::read(m_forward, data, count);
    const Transfer transfer = {m_register, count, static_cast<U8*>(data)};
    const auto fault = firstFault(&FaultRow::read, transfer);
    return fault ? *fault : deliver(transfer);
}

ssize_t FakeBus::write(int descriptor, const void* data, std::size_t count)
{
    if (m_open.count(descriptor) == 0)
        stop("write on a closed descriptor");
    if (isTooLarge(count) || count == 0) {
        record([=] { return "write of " + std::to_string(static_cast<ssize_t>(count)) + " bytes"; });
        return count == 0 ? 0 : failWith(EINVAL);
    }
    const auto* const message = static_cast<const U8*>(data);
    record([=] { return "write " + hex(Bytes(message, message + count)); });
    if (m_forward != -1)
        realcalls::write(m_forward, data, count);
    if (const auto fault = firstFault(&FaultRow::write, {message[0], count, nullptr}))
        return *fault;
    m_register = message[0];
    return static_cast<ssize_t>(count);
}

// Of several faults, the first in this order is the answer. The later ones are not used up.
const FakeBus::FaultRow FakeBus::kFaults[] = {
    {&FakeBus::givenWrite, &FakeBus::givenRead},               // answersWrites(); answersReads()
    {&FakeBus::refusedByRegister, &FakeBus::failedByRegister}, // refusesRegister(), refusesData(); failsReadsOf()
    {&FakeBus::refused, &FakeBus::failed},                     // refusesWrites(); failsReads(), or no content
    {&FakeBus::shortWrite, &FakeBus::shortRead},               // takesOnly(); deliversOnly()
};

FakeBus::Result FakeBus::firstFault(Fault FaultRow::*kind, const Transfer& transfer)
{
    for (const FaultRow& row : kFaults) {
        if (const Result result = (this->*(row.*kind))(transfer))
            return result;
    }
    return std::nullopt;
}

/// A result that is the count of the message leaves the answer to the other faults.
FakeBus::Result FakeBus::givenWrite(const Transfer& transfer)
{
    const int result = next(m_writeResults);
    if (result == -1)
        return failWith(ENXIO);
    if (result == kAsItIs || static_cast<std::size_t>(result) == transfer.count)
        return std::nullopt;
    return result;
}

FakeBus::Result FakeBus::givenRead(const Transfer& transfer)
{
    const int result = next(m_readResults);
    if (result == -1)
        return failWith(EIO);
    if (result == kAsItIs)
        return std::nullopt;
    return deliverGiven(static_cast<std::size_t>(result), transfer);
}

FakeBus::Result FakeBus::refusedByRegister(const Transfer& transfer)
{
    auto& faults = transfer.count > 1 ? m_refusedData : m_refusedRegisters;
    return strikes(faults, transfer.reg) ? Result(failWith(ENXIO)) : std::nullopt;
}

FakeBus::Result FakeBus::failedByRegister(const Transfer& transfer)
{
    return strikes(m_failedReadsOf, transfer.reg) ? Result(failWith(EIO)) : std::nullopt;
}

FakeBus::Result FakeBus::refused(const Transfer& /*transfer*/)
{
    return strikes(m_refusedWrites) ? Result(failWith(m_writeError)) : std::nullopt;
}

FakeBus::Result FakeBus::failed(const Transfer& transfer)
{
    if (strikes(m_failedReads))
        return failWith(m_readError);
    return m_content.count(transfer.reg) == 0 ? Result(failWith(EIO)) : std::nullopt;
}

FakeBus::Result FakeBus::shortWrite(const Transfer& transfer)
{
    const auto limit = m_shortWrites.find(transfer.reg);
    return transfer.count > 1 && limit != m_shortWrites.end() ? Result(limit->second) : std::nullopt;
}

FakeBus::Result FakeBus::shortRead(const Transfer& transfer)
{
    const auto limit = m_shortReads.find(transfer.reg);
    if (limit == m_shortReads.end())
        return std::nullopt;
    const auto count = std::min(transfer.count, static_cast<std::size_t>(limit->second));
    return deliver({transfer.reg, count, transfer.data});
}

/// Reads the content of the register.
ssize_t FakeBus::deliver(const Transfer& transfer) const
{
    const Bytes& content = m_content.at(transfer.reg);
    const std::size_t delivered = std::min(transfer.count, content.size());
    std::copy_n(content.begin(), delivered, transfer.data);
    return static_cast<ssize_t>(delivered);
}

/// A read whose result was given, whatever the register holds.
ssize_t FakeBus::deliverGiven(std::size_t given, const Transfer& transfer) const
{
    const std::size_t filled = std::min(transfer.count, given);
    std::fill_n(transfer.data, filled, U8{0xff});
    const auto content = m_content.find(transfer.reg);
    if (content != m_content.end())
        std::copy_n(content->second.begin(), std::min(filled, content->second.size()), transfer.data);
    return static_cast<ssize_t>(given);
}

int FakeBus::close(int descriptor)
{
    record([] { return "close"; });
    if (m_open.erase(descriptor) == 0)
        stop("close of a closed descriptor");
    return 0;
}

int FakeBus::usleep(unsigned microseconds)
{
    record([=] { return "sleep " + std::to_string(microseconds); });
    return 0;
}

int FakeBus::changeSemaphore(int delta)
{
    record([=] { return delta < 0 ? "lock" : "unlock"; });
    m_tokens += delta;
    if (m_tokens < 0)
        stop("the lock is taken twice: the process would wait forever");
    if (m_tokens > 1)
        stop("the lock is released twice");
    return 0;
}

std::string hex(const Bytes& bytes)
{
    std::vector<std::string> numbers;
    numbers.reserve(bytes.size());
    for (const auto byte : bytes)
        numbers.push_back(hexNumber(byte));
    return join(numbers, " ");
}

Bytes counting(std::size_t count, unsigned first)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<FakeBus::U8>(first + i);
    return bytes;
}

} // namespace testsupport
