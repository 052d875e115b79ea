#include "tool/doctor/exchange.h"

#include <algorithm>
#include <cerrno>

#include "authchipdriver/registermap.h"
#include "common/bits.h"
#include "common/hex.h"
#include "common/numbers.h"
#include "common/patience.h"
#include "tool/chip/advice.h"
#include "tool/chip/rereading.h"

namespace VorelKestrel::Tool {
namespace {

using namespace ACD;

constexpr char kLookAtTheBus[] =
    "Run this again. If it fails again, check the bus clock, the pull-ups and the chip's supply.";
constexpr char kResetTheChip[] = "Reset the chip and run this again. If it fails again, the chip is defective.";
constexpr char kAskTheMaker[] = "Ask the chip's maker for the longest time that it takes to sign. The library waits a "
                                "second, and no option changes that.";

constexpr char kLookAtTheSupply[] = "Look at the chip's supply while it signs, when it needs the most current: "
                                    "capacitors beside it, and a regulator that\n"
                                    "delivers enough. Then look at its reset line for glitches.";

constexpr char kFindTheLoss[] =
    "Look at the chip's supply and its reset line, and for a loose contact. A regulator that no driver uses is\n"
    "switched off by the kernel about 30 seconds after boot, unless the device tree gives it 'regulator-always-on';\n"
    "'dmesg' shows it (\"disabling\").";

/// How often a silent chip is asked as patiently as the library asks, to tell one that is busy from one that is gone.
constexpr int kRoundsOfAttempts = 4;

/// Long enough for the time of a byte: what each message costs besides counts little. Bytes.
constexpr std::size_t kLongMessage = 64;

std::string named(std::uint8_t reg)
{
    return "register " + toHex(reg, 2);
}

/// Of a register of two bytes.
std::size_t numberOf(const Bytes& content)
{
    return static_cast<std::size_t>(content[0] * 256 + content[1]);
}

/// Requires: the access failed.
Step failedStep(const Access& access)
{
    if (access.registerTaken)
        return Step::ReadRegister;
    return access.error == EOPNOTSUPP ? Step::WriteRegister : Step::SetRegister; // the adapter took shorter messages
}

Finding restarted()
{
    return {"chip restarted",
            "the chip restarted while it signed: its status (register 0x10) is 0x00, and it no longer knows the "
            "challenge's length (register 0x20)",
            kLookAtTheSupply};
}

} // namespace

Exchange::Exchange(Examination& examination) : m_examination(examination), m_bus(examination.node, examination.effort)
{}

Bytes Exchange::certificate(const Generation& generation)
{
    const std::string lengthName = "the certificate's length";
    const std::size_t length = readLength(kRegisterCertificateLength, lengthName);
    const std::size_t room = static_cast<std::size_t>(generation.certificatePages) * kCertificatePageSize;
    if (length == 0)
        throw ExchangeStopped({"no certificate", "the chip reports a certificate of 0 bytes (register 0x30)",
                               "The chip was delivered without a certificate, or lost it: replace it."});
    if (length > room)
        stopAt({kRegisterCertificateLength, lengthName, bigEndian16(length)},
               [=](const Bytes& again) { return numberOf(again) <= room; },
               {"wrong length",
                "the chip reports a certificate of " + inBytes(length) + " (register 0x30); protocol " +
                    generation.protocol + " has room for " + std::to_string(room),
                kLookAtTheBus});
    Bytes certificate;
    for (int page = 1; certificate.size() < length; ++page) {
        const std::size_t rest = std::min<std::size_t>(length - certificate.size(), kCertificatePageSize);
        const Bytes data =
            read(certificatePageRegister(page), rest, "page " + std::to_string(page) + " of the certificate");
        certificate.insert(certificate.end(), data.begin(), data.end());
    }
    return certificate;
}

Bytes Exchange::signature(const Generation& generation, const Bytes& challenge)
{
    if (generation.hostWritesLengths) {
        write(kRegisterResponseLength, bigEndian16(generation.responseLength), "the signature's length");
        write(kRegisterChallengeLength, bigEndian16(challenge.size()), "the challenge's length");
    }
    write(kRegisterChallenge, challenge, "the challenge");
    if (!generation.hostWritesLengths)
        requireCounted(challenge);
    write(kRegisterControlAndStatus, {kCommandGenerateResponse}, "the start command");
    requireSigned(generation);
    return readSignature(generation);
}

void Exchange::requireCounted(const Bytes& challenge)
{
    const std::string what = "the challenge's length";
    const std::size_t sent = challenge.size();
    const std::size_t counted = readLength(kRegisterChallengeLength, what);
    if (counted != sent)
        stopAt({kRegisterChallengeLength, what, bigEndian16(counted)},
               [=](const Bytes& again) { return numberOf(again) == sent; },
               {"wrong length",
                "the chip counted " + inBytes(counted) + " of the challenge (register 0x20); " + std::to_string(sent) +
                    " were sent",
                kLookAtTheBus});
}

Bytes Exchange::readSignature(const Generation& generation)
{
    const std::string what = "the signature's length";
    const std::size_t wanted = generation.responseLength;
    const std::size_t length = readLength(kRegisterResponseLength, what);
    if (length != wanted)
        stopAt({kRegisterResponseLength, what, bigEndian16(length)},
               [=](const Bytes& again) { return numberOf(again) == wanted; },
               {"wrong length",
                "the chip reports a signature of " + inBytes(length) + " (register 0x11); protocol " +
                    generation.protocol + " has " + std::to_string(wanted),
                kResetTheChip});
    return read(kRegisterResponse, length, "the signature");
}

/// After the start command the chip answers no message until it is done.
void Exchange::requireSigned(const Generation& generation)
{
    const Access access = m_bus.read(kRegisterControlAndStatus, 1);
    if (!access.registerTaken && isNoAnswer(Step::SetRegister, access.error))
        throw ExchangeStopped(explainSilence());
    if (!access.isDone(1))
        stop(access, kRegisterControlAndStatus, 1, "read the status");
    const std::uint8_t status = access.data[0];
    if (status == 0 && hasForgottenTheChallenge(generation))
        throw ExchangeStopped(restarted());
    if (resultOfStatus(status) != kResultGenerated)
        stopAt({kRegisterControlAndStatus, "the status", access.data},
               [](const Bytes& again) { return resultOfStatus(again[0]) == kResultGenerated; },
               {"wrong status",
                "the chip did not sign: its status (register 0x10) is " + toHex(status, 2) +
                    "; bits 6 to 4 have to be 001",
                kResetTheChip});
}

/// Requires: the chip refused every attempt to read its status after the start command.
Finding Exchange::explainSilence()
{
    const Effort& effort = m_examination.effort;
    for (int round = 1; round < kRoundsOfAttempts; ++round) {
        const int retriesBefore = effort.retries;
        if (m_bus.read(kRegisterControlAndStatus, 1).registerTaken)
            return {"chip busy",
                    "after the start command the chip refused " +
                        std::to_string(round * kAttempts + effort.retries - retriesBefore) +
                        " messages before it answered; the library gives up after " + std::to_string(kAttempts),
                    kAskTheMaker};
    }
    return {kChipGone,
            "since the start command the chip is gone: it refused each of " +
                std::to_string(kRoundsOfAttempts * kAttempts) + " attempts",
            std::string("Switch the chip off and on. ") + kLookAtTheSupply};
}

/// Requires: a challenge was sent. A chip that could not sign it still knows how long it was.
bool Exchange::hasForgottenTheChallenge(const Generation& generation)
{
    if (!showsChallengeLength(0))
        return false;
    if (!generation.hostWritesLengths)
        return true; // it has shown the length before
    // A register that the host writes may always read as 0.
    return m_bus.write(kRegisterChallengeLength, bigEndian16(generation.challengeLength)).registerTaken &&
           showsChallengeLength(generation.challengeLength);
}

bool Exchange::showsChallengeLength(std::size_t length)
{
    const Access access = m_bus.read(kRegisterChallengeLength, 2);
    return access.isDone(2) && access.data == bigEndian16(length);
}

std::optional<Bytes> Exchange::heldChallenge(std::size_t length)
{
    Access access = m_bus.read(kRegisterChallenge, length);
    if (!access.isDone(length))
        return std::nullopt;
    return std::move(access.data);
}

Bytes Exchange::read(std::uint8_t reg, std::size_t length, const std::string& what)
{
    Access access = m_bus.read(reg, length);
    if (!access.isDone(length))
        stop(access, reg, length, "read " + what);
    const auto timeOfAByte = access.time / static_cast<int>(length + 1); // the address is one, too
    auto& shortest = m_examination.timeOfAByte;
    if (length >= kLongMessage && (shortest.count() == 0 || timeOfAByte < shortest))
        shortest = timeOfAByte;
    return std::move(access.data);
}

std::size_t Exchange::readLength(std::uint8_t reg, const std::string& what)
{
    return numberOf(read(reg, 2, what));
}

void Exchange::stopAt(const Reading& reading, const std::function<bool(const Bytes&)>& isRight, const Finding& finding)
{
    const std::size_t length = reading.content.size();
    const Access again = m_bus.read(reading.reg, length);
    if (!again.isDone(length) || !isRight(again.data))
        throw ExchangeStopped(finding);
    const auto difference =
        findDifferenceOf(reading.what + " (" + named(reading.reg) + ")", reading.content, again.data);
    throw ExchangeStopped(difference ? Finding{difference->cause, difference->found, difference->next} : finding);
}

void Exchange::write(std::uint8_t reg, const Bytes& data, const std::string& what)
{
    const Access access = m_bus.write(reg, data);
    if (!access.registerTaken)
        stop(access, reg, 0, "write " + what);
}

/// Whether the chip refuses what every chip answers: its device version.
bool Exchange::isGone()
{
    const Access access = m_bus.read(kRegisterDeviceVersion, 1);
    return !access.registerTaken && isNoAnswer(Step::SetRegister, access.error);
}

void Exchange::stop(const Access& access, std::uint8_t reg, std::size_t length, const std::string& tried)
{
    const std::string place = tried + " (" + named(reg) + "): ";
    const bool isRefused = isNoAnswer(Step::SetRegister, access.error);
    if (isRefused && isGone())
        throw ExchangeStopped({kChipGone,
                               "cannot " + place + "the chip, which answered before, is gone: it no longer answers " +
                                   named(kRegisterDeviceVersion) + " either, to each of " + std::to_string(kAttempts) +
                                   " attempts",
                               kFindTheLoss});
    if (!access.registerTaken && isRefused)
        throw ExchangeStopped({"register refused",
                               "cannot " + place + "the chip, which answers otherwise, refused each of " +
                                   std::to_string(kAttempts) + " attempts",
                               kResetTheChip});
    if (access.registerTaken && access.received >= 0)
        throw ExchangeStopped({"short read",
                               "cannot " + place + std::to_string(access.received) + " of " + inBytes(length) + " came",
                               "Check the bus controller's limits, the bus clock and the pull-ups."});
    const Step step = failedStep(access);
    const Failure failure = explainRefusal(step, access.error, m_examination.location);
    throw ExchangeStopped({causeOfRefusal(step, access.error), "cannot " + place + failure.answer(), failure.next()});
}

} // namespace VorelKestrel::Tool
