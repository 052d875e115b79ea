#include "tool/commands/command.h"

#include "tool/chip/storedcertificate.h"
#include "tool/chip/verification.h"
#include "tool/commands/chipreport.h"
#include "tool/commands/trustarguments.h"
#include "tool/commands/verdict.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

/// Rules the bus out before a certificate is called unreadable.
Certificate parse(Chip& chip, const Bytes& stored, const ChipLocation& location)
{
    try {
        return parseCertificate(stored);
    } catch (const Failure&) {
        requireSameCertificate(chip, stored, location);
        throw;
    }
}

/// A key of the wrong kind explains an answer of the wrong length.
Bytes sign(Chip& chip, const Certificate& certificate, const Bytes& challenge, const ChipLocation& location)
{
    try {
        return chip.sign(challenge);
    } catch (const Failure& failure) {
        const auto wrongKey = findWrongKey(chip.generation(), certificate.publicKey());
        if (!wrongKey || statusOf(failure.cause()) != ExitStatus::Chip)
            throw;
        throw Failure(wrongKey->cause, "verify the chip on " + describe(location),
                      "Not authentic: " + wrongKey->found + ". " + failure.answer(), failedCheck(*wrongKey).next);
    }
}

/// Has another challenge signed if that tells more about a signature that does not match.
void examineFlaw(Chip& chip, const Evidence& evidence, TrustReport& examination, const ChipLocation& location)
{
    const TrustCheck& ofSignature = examination.checks.front();
    if (ofSignature.result != TrustCheck::Result::Failed)
        return;
    const SignatureFlaw flaw = {ofSignature.cause, ofSignature.found};
    if (!mayBeToldApart(flaw) && !mayBeAnotherRegister(evidence.signature))
        return;
    const Bytes challenge = randomChallenge(evidence.generation);
    const SignatureFlaw told = tellApart(evidence.generation, evidence.certificate.publicKey(), flaw,
                                         evidence.signature, {challenge, chip.sign(challenge)});
    if (const char* next = howToMend(told.cause))
        throw Failure(told.cause, "verify the chip on " + describe(location), told.found, next);
    examination.checks.front() = failedCheck(told);
    if (mayBeToldApart(told) && evidence.signature.size() == evidence.generation.responseLength)
        examination.checks.front().next = "Run 'authchip doctor': it finds out whether the challenge arrives altered. "
                                          "If it does not, do not trust this\n"
                                          "accessory.";
}

class Authenticate : public Command
{
public:
    void declare(Arguments& arguments) override { m_trust.declare(arguments); }
    void interpret() override { m_trust.interpret(); }

    bool isRepeatable() const override { return true; }

    ExitStatus run(const CommandContext& context) override
    {
        const Trust trust(m_trust.options());
        const auto chip = context.chips->detect();
        const Bytes stored = chip->certificate();
        const Certificate certificate = parse(*chip, stored, context.options.location);
        const Bytes challenge = randomChallenge(chip->generation());
        const Evidence evidence = {chip->generation(), certificate, challenge,
                                   sign(*chip, certificate, challenge, context.options.location)};
        TrustReport examination = examine(evidence, trust);
        if (examination.failure() != nullptr) {
            requireSameCertificate(*chip, stored, context.options.location);
            examineFlaw(*chip, evidence, examination, context.options.location);
        }

        auto report = startReport(context.options);
        addProtocol(report, *chip);
        addVerdict(report, evidence, examination);
        answer(context, report, examination, "verify the chip on " + describe(context.options.location));
        return ExitStatus::Success;
    }

private:
    TrustArguments m_trust;
};

} // namespace

std::unique_ptr<Command> makeAuthenticate()
{
    return std::make_unique<Authenticate>();
}

} // namespace VorelKestrel::Tool
