#include <numeric>

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

Finding examine(const Certificate& certificate)
{
    const TrustReport examined = Trust(TrustOptions()).examine(certificate);
    const TrustCheck* failure = examined.failure();
    const bool isDate = failure != nullptr && std::string(failure->name) == "validity";
    if (failure != nullptr)
        return {failure->cause, failure->found, isDate ? kLookAtTheClock : failure->next};
    return healthy(certificate.subject() + ", " + certificate.keyDescription() + ", until " + certificate.notAfter());
}

} // namespace

std::vector<Finding> checkCertificate(Examination& examination)
{
    try {
        const Bytes stored = Exchange(examination).certificate(*examination.generation);
        examination.certificate.emplace(parseCertificate(stored));
        return {examine(*examination.certificate)};
    } catch (const ExchangeStopped& stopped) {
        return {stopped.finding()};
    } catch (const Failure& failure) {
        return {refused("unreadable certificate", failure)};
    }
}

std::vector<Finding> checkSignature(Examination& examination)
{
    if (!examination.signs)
        return {skipped()};
    const Generation& generation = *examination.generation;
    const Bytes challenge = challengeOfDoctor(generation);
    try {
        const Bytes signature = Exchange(examination).signature(generation, challenge);
        if (!examination.certificate)
            return {healthy("the chip signs; not verified, since its certificate is not known")};
        const auto flaw = findFlaw(generation, examination.certificate->publicKey(), challenge, signature);
        if (!flaw)
            return {healthy("made with the certificate's key")};
        return {{flaw->cause, flaw->found, "Run this again to rule the bus out; if it stays so, replace the chip."}};
    } catch (const ExchangeStopped& stopped) {
        return {stopped.finding()};
    }
}

} // namespace VorelKestrel::Tool
