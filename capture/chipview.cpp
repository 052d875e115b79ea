#include "capture/chipview.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iterator>

#include "authchipdriver/registermap.h"
#include "common/generations.h"
#include "common/hex.h"
#include "common/numbers.h"
#include "common/patience.h"

namespace VorelKestrel::Capture {
namespace {

constexpr auto kRetryPauseNanoseconds = static_cast<std::uint64_t>(std::chrono::nanoseconds(kRetryPause).count());

constexpr int kMostPages = std::max(kGeneration20B.certificatePages, kGeneration30.certificatePages);

const ACD::Register* findRegister(AL::U8 reg)
{
    const auto* found = std::find_if(std::begin(ACD::kRegisterMap), std::end(ACD::kRegisterMap),
                                     [reg](const ACD::Register& row) { return row.number == reg; });
    return found == std::end(ACD::kRegisterMap) ? nullptr : found;
}

bool hasName(AL::U8 reg)
{
    return findRegister(reg) != nullptr || pageOf(reg) != 0;
}

bool isWritable(AL::U8 reg, const Generation* generation)
{
    const bool isLength = reg == ACD::kRegisterResponseLength || reg == ACD::kRegisterChallengeLength;
    if (isLength)
        return generation == nullptr || generation->hostWritesLengths;
    return reg == ACD::kRegisterControlAndStatus || reg == ACD::kRegisterChallenge;
}

bool isLength(AL::U8 reg)
{
    return reg == ACD::kRegisterResponseLength || reg == ACD::kRegisterChallengeLength ||
           reg == ACD::kRegisterCertificateLength;
}

std::string bigEndian(const AL::U8* bytes, std::size_t length)
{
    unsigned value = 0;
    for (std::size_t i = 0; i < length; ++i)
        value = value << 8U | bytes[i];
    return std::to_string(value);
}

/// How a message failed, as text.
std::string failureOf(const Message& message, bool isBusy)
{
    const int error = -message.facts.result;
    const char* name = strerrorname_np(error);
    switch (error) {
    case ENXIO:
    case EREMOTEIO:
        return isBusy ? "refused, busy" : "refused";
    case ETIMEDOUT:
        return "timed out";
    case EAGAIN:
        return "arbitration lost";
    case EBUSY:
        return message.isSelection() ? "held by a kernel driver" : "bus busy";
    default:
        return std::string("failed, ") + (name != nullptr ? name : "error " + std::to_string(error));
    }
}

std::string outcomeOf(const Message& message, bool isBusy)
{
    const Facts& facts = message.facts;
    if (facts.isShort())
        return "short, " + std::to_string(facts.result) + " of " + inBytes(facts.requested);
    if (!facts.failed())
        return "";
    std::string failure = failureOf(message, isBusy);
    if (message.isSelection())
        return failure;
    const bool isOfTheLibrary = facts.attempt <= kAttempts; // others may be more patient
    return failure + " (" + std::to_string(facts.attempt) + (isOfTheLibrary ? " of " + std::to_string(kAttempts) : "") +
           ")";
}

} // namespace

int pageOf(AL::U8 reg)
{
    const int page = reg - ACD::kRegisterCertificateLength;
    return page >= 1 && page <= kMostPages ? page : 0;
}

std::string nameOfRegister(AL::U8 reg)
{
    if (const int page = pageOf(reg))
        return "certificate page " + std::to_string(page);
    const ACD::Register* row = findRegister(reg);
    return row != nullptr ? row->shortName : "register " + toHex(reg, 2);
}

Step ChipView::describe(const Message& message)
{
    Step step;
    step.message = &message;
    step.reg = registerOf(message);
    step.what = whatOf(message, step.reg);
    step.isBusy = m_isBusy && message.facts.failed();
    step.outcome = outcomeOf(message, m_isBusy);
    if (!message.isSelection()) {
        findOddities(step);
        follow(message, step.reg);
    }
    m_last = &message;
    return step;
}

std::optional<AL::U8> ChipView::registerOf(const Message& message) const
{
    if (message.isSelection())
        return std::nullopt;
    if (message.facts.isRead)
        return m_named;
    return message.bytes().empty() ? std::nullopt : std::optional<AL::U8>(message.bytes()[0]);
}

std::string ChipView::whatOf(const Message& message, std::optional<AL::U8> reg) const
{
    if (message.isSelection())
        return "select address " + toHex(message.facts.address, 2);
    if (!message.facts.isRead)
        return reg ? writeOf(message, *reg) : "write " + inBytes(message.byteCount());
    return reg ? readOf(message, *reg) : "read " + inBytes(message.facts.requested) + " of an unknown register";
}

std::string ChipView::writeOf(const Message& message, AL::U8 reg) const
{
    const Bytes& bytes = message.bytes();
    const std::size_t count = message.byteCount() - 1;
    if (count == 0)
        return "name register " + toHex(reg, 2) + (hasName(reg) ? ", " + nameOfRegister(reg) : "");
    const bool isWhole = bytes.size() == message.byteCount();
    if (reg == ACD::kRegisterControlAndStatus && isWhole && count == 1)
        return bytes[1] == ACD::kCommandGenerateResponse ? "write start command"
                                                         : "write command " + toHex(bytes[1], 2);
    if (isLength(reg) && isWhole && count == 2)
        return "write " + nameOfRegister(reg) + ": " + bigEndian(&bytes[1], count);
    return "write " + nameOfRegister(reg) + ", " + inBytes(count);
}

std::string ChipView::readOf(const Message& message, AL::U8 reg) const
{
    const std::string read = "read " + nameOfRegister(reg);
    if (message.facts.failed() || message.facts.isShort())
        return read + ", " + inBytes(message.facts.requested);
    const std::string value = valueOf(message, reg);
    return value.empty() ? read + ", " + inBytes(message.length) : read + ": " + value;
}

/// The value of a register with a known width; empty for others, and if it is not in the capture.
std::string ChipView::valueOf(const Message& message, AL::U8 reg) const
{
    const Bytes& data = message.data;
    const ACD::Register* row = findRegister(reg);
    if (row == nullptr || row->width == 0 || data.size() != static_cast<std::size_t>(row->width) ||
        data.size() != message.length)
        return "";
    if (reg == ACD::kRegisterControlAndStatus) {
        const int result = ACD::resultOfStatus(data[0]);
        const std::string status = " (" + toHex(data[0], 2) + ")";
        return result == ACD::kResultGenerated ? "generated" + status
               : result == 0                   ? "nothing generated" + status
                                               : "not generated, result " + std::to_string(result) + status;
    }
    if (reg == ACD::kRegisterDeviceId)
        return "0x" + toHex(data);
    std::string number = bigEndian(data.data(), data.size());
    if (reg != ACD::kRegisterDeviceVersion)
        return number;
    const DeviceVersion* version = findDeviceVersion(data[0]);
    return number + (version != nullptr ? std::string(", protocol ") + version->protocol : ", unknown");
}

void ChipView::findOddities(Step& step)
{
    const Facts& facts = step.message->facts;
    if (facts.attempt > static_cast<AL::U32>(kAttempts))
        step.oddities.emplace_back("repeated more often than our library does");
    const bool isRetry = facts.attempt > 1 && m_last != nullptr && facts.call == Call::Write;
    if (isRetry && facts.time < m_last->facts.time + m_last->facts.duration + kRetryPauseNanoseconds)
        step.oddities.emplace_back("repeated within " + std::to_string(kRetryPause.count()) + " ms");
    if (facts.attempt > 1)
        return; // the first attempt has the other remarks
    if (facts.place == 0 && facts.call == Call::Transfer)
        step.oddities.emplace_back("sent with ioctl(I2C_RDWR); our library uses write() and read()");
    if (facts.place == 0 && facts.call == Call::Smbus)
        step.oddities.emplace_back("sent with ioctl(I2C_SMBUS); our library uses write() and read()");
    if (facts.isRead)
        findOdditiesOfRead(step);
    else
        findOdditiesOfWrite(step);
}

void ChipView::findOdditiesOfWrite(Step& step) const
{
    if (!step.reg) {
        step.oddities.emplace_back("a write without a register");
        return;
    }
    const AL::U8 reg = *step.reg;
    const std::size_t count = step.message->byteCount() - 1;
    if (!hasName(reg))
        step.oddities.emplace_back("this register does not exist");
    else if (count > 0 && !isWritable(reg, m_generation))
        step.oddities.emplace_back("this register is read-only");
    if (m_generation != nullptr && pageOf(reg) > m_generation->certificatePages)
        step.oddities.emplace_back(std::string("a chip of protocol ") + m_generation->protocol + " has no such page");
    if (reg == ACD::kRegisterChallenge && count > 0 && m_generation != nullptr && count > m_generation->challengeLength)
        step.oddities.emplace_back(std::string("a challenge of protocol ") + m_generation->protocol + " has " +
                                   inBytes(m_generation->challengeLength));
    if (reg == ACD::kRegisterControlAndStatus && count > 0 && !m_hasChallenge)
        step.oddities.emplace_back("a command without a challenge");
}

void ChipView::findOdditiesOfRead(Step& step) const
{
    const ACD::Register* row = step.reg ? findRegister(*step.reg) : nullptr;
    const AL::U32 requested = step.message->facts.requested;
    if (!step.reg)
        step.oddities.emplace_back("no register was named");
    else if (row != nullptr && row->width > 0 && requested != static_cast<AL::U32>(row->width))
        step.oddities.emplace_back("this register has " + inBytes(static_cast<std::size_t>(row->width)));
    else if (pageOf(*step.reg) != 0 && requested > ACD::kCertificatePageSize)
        step.oddities.emplace_back("a page has " + inBytes(ACD::kCertificatePageSize));
}

void ChipView::follow(const Message& message, std::optional<AL::U8> reg)
{
    const Facts& facts = message.facts;
    if (facts.failed())
        return;
    m_isBusy = false; // it has acknowledged a message
    if (facts.isRead) {
        if (reg == ACD::kRegisterDeviceVersion && message.data.size() == 1)
            m_generation = findGeneration(message.data[0]);
        return;
    }
    m_named = reg;
    if (message.byteCount() < 2 || facts.isShort())
        return;
    if (reg == ACD::kRegisterChallenge)
        m_hasChallenge = true;
    if (reg == ACD::kRegisterControlAndStatus) {
        m_isBusy = true;
        m_hasChallenge = false;
    }
}

} // namespace VorelKestrel::Capture
