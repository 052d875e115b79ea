#include "tool/commands/command.h"

#include "tool/chip/storedcertificate.h"
#include "tool/commands/chipreport.h"
#include "tool/commands/trustarguments.h"
#include "tool/commands/verdict.h"

namespace VorelKestrel::Tool {
namespace {

class Authenticate : public Command
{
public:
    void declare(CLI::App& app) override { m_trust.declare(app); }
    void interpret() override { m_trust.interpret(); }

    bool isRepeatable() const override { return true; }

    ExitStatus run(const CommandContext& context) override
    {
        const Trust trust(m_trust.options());
        const auto chip = context.chips->detect();
        const Certificate certificate = parseCertificate(chip->certificate());
        const Bytes challenge = randomChallenge(chip->generation());
        const Bytes signature = chip->sign(challenge);

        auto report = startReport(context.options);
        addProtocol(report, *chip);
        const TrustReport examination =
            addVerdict(report, {chip->generation(), certificate, challenge, signature}, trust);
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
