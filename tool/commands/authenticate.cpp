#include "tool/commands/command.h"

#include "tool/chip/verification.h"
#include "tool/commands/chipreport.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

class Authenticate : public Command
{
public:
    ExitStatus run(const CommandContext& context) override
    {
        const auto chip = context.chips->detect();
        const Certificate certificate = parseCertificate(chip->certificate());
        const Bytes challenge = randomChallenge(chip->generation());
        const Bytes signature = chip->sign(challenge);
        const std::string flaw = findFlaw(chip->generation(), certificate.publicKey(), challenge, signature);

        auto report = startReport(context.options);
        addProtocol(report, *chip);
        report.row("subject", "subject", certificate.subject())
            .row("issuer", "issuer", certificate.issuer())
            .row("serial", "serial", certificate.serial())
            .row("key", "key", certificate.keyDescription())
            .hexRow("challenge", "challenge", challenge)
            .hexRow("signature", "signature", signature);
        report.text("result", flaw.empty() ? "authentic: the chip holds the key of its certificate" : "NOT AUTHENTIC")
            .json("authentic", flaw.empty());
        report.print(context.options.json, context.answer);
        if (!flaw.empty())
            throw Failure(ExitStatus::NotAuthentic, "verify the chip on " + describe(context.options.location),
                          "Not authentic: " + flaw,
                          "Try again to rule the bus out; if it stays so, do not trust this accessory.");
        return ExitStatus::Success;
    }
};

} // namespace

std::unique_ptr<Command> makeAuthenticate()
{
    return std::make_unique<Authenticate>();
}

} // namespace VorelKestrel::Tool
