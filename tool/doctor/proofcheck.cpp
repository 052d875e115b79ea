#include <algorithm>
#include <numeric>

#include "common/bits.h"
#include "common/hex.h"
#include "tool/chip/advice.h"
#include "tool/chip/storedcertificate.h"
#include "tool/chip/trust.h"
#include "tool/chip/verification.h"
#include "tool/doctor/checks.h"
#include "tool/doctor/exchange.h"

namespace VorelKestrel::Tool {
namespace {

/// Deliberate: always the same, so that a capture of an examination can be played back. Whether the accessory is
/// genuine is not the doctor's question; 'authchip authenticate' asks with a random challenge.
Bytes challengeOfDoctor(const Generation& generation)
{
    Bytes challenge(generation.challengeLength);
    std::iota(challenge.begin(), challenge.end(), std::uint8_t{0});
    return challenge;
}

constexpr char kLookAtTheClock[] = "If this board's clock is wrong, set it; otherwise replace the accessory. 'authchip "
                                   "authenticate --at TIME' checks\n"
                                   "the dates at another time.";

constexpr char kReplaceTheChip[] = "Run this again. If it fails again, replace the chip.";

Finding examine(const Certificate& certificate)
{
    const TrustReport examined = Trust(TrustOptions()).examine(certificate);
    const TrustCheck* failure = examined.failure();
    const bool isDate = failure != nullptr && std::string(failure->name) == "validity" && !examined.isClockWrong;
    if (failure != nullptr)
        return {failure->cause, failure->found, isDate ? kLookAtTheClock : failure->next};
    return healthy(certificate.subject() + ", " + certificate.keyDescription() + ", until " + certificate.notAfter());
}

std::optional<Failure> otherRefusal(const Examination& examination)
{
    if (examination.effort.error == 0)
        return std::nullopt;
    return explainRefusal(Step::SetRegister, examination.effort.error, examination.location);
}

/// What is known of a certificate that could be read, and of the bus that it came over.
std::vector<Finding> examineAll(Examination& examination, const Bytes& stored, int retries)
{
    examination.certificate.emplace(parseCertificate(stored));
    std::vector<Finding> findings = {examine(*examination.certificate)};
    for (const auto& notes :
         {notesOnRefusals(retries, otherRefusal(examination)), notesOnSpeed(examination.timeOfAByte)})
        findings.insert(findings.end(), notes.begin(), notes.end());
    return findings;
}

Finding explainFlaw(Exchange& exchange, const Examination& examination, const SignatureFlaw& flaw,
                    const SignedChallenge& first)
{
    SignatureFlaw told = flaw;
    if (mayBeToldApart(flaw) || mayBeAnotherRegister(first.signature)) {
        const auto held = exchange.heldChallenge(first.challenge.size());
        const auto alteration = held ? findAlteration(first.challenge, *held) : std::nullopt;
        if (alteration)
            return {kBitErrors, *alteration, kHowToMendTheBus};
        const Bytes challenge(first.challenge.rbegin(), first.challenge.rend());
        const Bytes signature = exchange.signature(*examination.generation, challenge);
        told = tellApart(*examination.generation, examination.certificate->publicKey(), flaw, first.signature,
                         {challenge, signature});
    }
    const char* next = howToMend(told.cause);
    return {told.cause, told.found, next != nullptr ? next : kReplaceTheChip};
}

Finding haveSigned(Examination& examination)
{
    const Generation& generation = *examination.generation;
    const Bytes challenge = challengeOfDoctor(generation);
    Exchange exchange(examination);
    const Bytes signature = exchange.signature(generation, challenge);
    if (!examination.certificate)
        return healthy("the chip signs; not verified, since its certificate is not known");
    const auto flaw = findFlaw(generation, examination.certificate->publicKey(), challenge, signature);
    if (!flaw)
        return healthy("made with the certificate's key");
    return explainFlaw(exchange, examination, *flaw, {challenge, signature});
}

} // namespace

std::optional<std::string> findAlteration(const Bytes& sent, const Bytes& held)
{
    const std::size_t differingBits = countDifferingBits(sent, held);
    if (differingBits == 0 || differingBits > sent.size()) // more than one bit in eight: no challenge
        return std::nullopt;
    const auto altered = std::mismatch(sent.begin(), sent.end(), held.begin());
    return "the challenge arrives altered: byte " + std::to_string(altered.first - sent.begin()) + " was sent as " +
           toHex(*altered.first, 2) + ", and the chip holds " + toHex(*altered.second, 2) + " (register 0x21)";
}

std::vector<Finding> checkCertificate(Examination& examination)
{
    const int retriesBefore = examination.effort.retries;
    try {
        Exchange exchange(examination);
        const Bytes stored = exchange.certificate(*examination.generation);
        const Bytes again = exchange.certificate(*examination.generation); // not every changed bit shows otherwise
        if (const auto difference = findDifference(stored, again))
            return {{difference->cause, difference->found, difference->next}};
        if (const auto limit = findReadLimit(stored))
            return {refused("message too long", explainReadLimit(*limit))};
        return examineAll(examination, stored, examination.effort.retries - retriesBefore);
    } catch (const ExchangeStopped& stopped) {
        examination.isGone = std::string(stopped.finding().cause) == kChipGone;
        return {stopped.finding()};
    } catch (const Failure& failure) {
        examination.certificate.reset(); // it could not be examined
        examination.isShifted = std::string(failure.cause()) == kBitErrors;
        return {refused(failure.cause(), failure)};
    }
}

std::vector<Finding> checkSignature(Examination& examination)
{
    if (!examination.signs || examination.isShifted || examination.isGone)
        return {skipped()};
    try {
        return {haveSigned(examination)};
    } catch (const ExchangeStopped& stopped) {
        const auto wrongKey = examination.certificate
                                  ? findWrongKey(*examination.generation, examination.certificate->publicKey())
                                  : std::nullopt;
        if (wrongKey) // which explains what went wrong in the exchange
            return {{wrongKey->cause, wrongKey->found, kReplaceTheChip}, stopped.finding()};
        return {stopped.finding()};
    }
}

} // namespace VorelKestrel::Tool
