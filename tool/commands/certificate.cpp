#include "tool/commands/command.h"

#include "common/numbers.h"
#include "tool/chip/storedcertificate.h"
#include "tool/commands/arguments.h"
#include "tool/commands/chipreport.h"
#include "tool/commands/output.h"
#include "tool/commands/verdict.h"

namespace VorelKestrel::Tool {
namespace {

/// From the chip's certificate upward, a line each. The names say who claims to have issued what; nobody has verified
/// it.
void addChain(Report& report, const Certificate& certificate)
{
    std::string lines;
    const std::vector<std::string> chain = certificate.heldChain();
    for (const std::string& subject : chain)
        lines += (lines.empty() ? "" : "\n") + subject;
    report.text("chain", lines).json("chain", chain);
}

class CertificateCommand : public Command
{
public:
    void declare(Arguments& arguments) override
    {
        m_output.declare(arguments, "Store the certificate as the chip holds it; - is standard output");
        arguments.addFlag("--pem", m_pem, "Store it as X.509 in PEM; without -o, on standard output");
    }

    bool isRepeatable() const override { return true; }

    ExitStatus run(const CommandContext& context) override
    {
        m_output.requirePlace(context.options.json);
        const auto chip = context.chips->detect();
        const Bytes stored = chip->certificate();
        requireSameCertificate(*chip, stored, context.options.location); // not every changed bit shows otherwise
        if (!m_pem && !m_output.store(stored, context.answer))
            return ExitStatus::Success;

        const Certificate certificate = parseCertificate(stored);
        const bool isJson = context.options.json;
        if (m_pem && !m_output.isGiven() && !isJson) {
            context.answer << certificate.pem();
            return ExitStatus::Success;
        }
        if (m_pem && !m_output.store(certificate.pem(), context.answer))
            return ExitStatus::Success;

        auto report = startReport(context.options);
        const char* container = certificate.isInContainer() ? "PKCS #7" : "X.509";
        report.text("stored as", container + std::string(" in DER, ") + inBytes(stored.size()))
            .json("container", container)
            .json("length", stored.size());
        report.row("subject", "subject", certificate.subject())
            .row("issuer", "issuer", certificate.issuer())
            .row("serial", "serial", certificate.serial())
            .row("valid from", "notBefore", certificate.notBefore())
            .row("valid until", "notAfter", certificate.notAfter())
            .row("key", "key", certificate.keyDescription())
            .row("SHA-256", "sha256", certificate.sha256());
        if (m_pem && isJson)
            report.json("pem", certificate.pem());
        addChain(report, certificate);
        context.print(report);
        return ExitStatus::Success;
    }

private:
    OutputOption m_output;
    bool m_pem = false;
};

} // namespace

std::unique_ptr<Command> makeCertificate()
{
    return std::make_unique<CertificateCommand>();
}

} // namespace VorelKestrel::Tool
