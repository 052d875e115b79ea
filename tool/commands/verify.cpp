#include "tool/commands/command.h"

#include "common/filecontent.h"
#include "common/numbers.h"
#include "tool/chip/knowncontent.h"
#include "tool/chip/storedcertificate.h"
#include "tool/commands/arguments.h"
#include "tool/commands/chipreport.h"
#include "tool/commands/trustarguments.h"
#include "tool/commands/values.h"
#include "tool/commands/verdict.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

/// A chip's certificate is far shorter.
constexpr std::size_t kLongestFile = 65536;

Bytes readCertificateFile(const std::string& path)
{
    const FileContent content = readFile(path, kLongestFile);
    if (content.error != 0 || content.bytes.empty() || content.isTooLong)
        throw Failure(kWrongUsage, "read the certificate in " + path,
                      "It is empty, cannot be read, or is longer than " + std::to_string(kLongestFile) + " bytes",
                      "Name what 'authchip certificate' has stored, in DER or PEM.");
    return content.bytes;
}

Certificate parseFile(const std::string& path)
{
    const Bytes bytes = readCertificateFile(path);
    try {
        return parseCertificate(fromPem(bytes));
    } catch (const Failure&) {
        const KnownContent* content = recognise(bytes);
        if (content == nullptr || content->isOfChips)
            throw;
        throw Failure(kWrongUsage, "read the certificate in " + path,
                      "It holds " + std::string(content->name) + ", and no certificate",
                      "Name what 'authchip certificate' has stored, in DER or PEM.");
    }
}

void requireUnexchanged(const Generation& generation, const Bytes& challenge, const Bytes& signature)
{
    if (challenge.size() == generation.responseLength && signature.size() == generation.challengeLength)
        throw Failure(kWrongUsage, "verify the answer to the challenge",
                      "The challenge has " + inBytes(challenge.size()) + ", as a signature, and the signature " +
                          std::to_string(signature.size()) + ", as a challenge",
                      "Exchange the values of --challenge and --signature.");
}

/// What was recorded stays as it is: no other attempt tells more.
void adviseOnRecording(TrustCheck& ofSignature)
{
    if (ofSignature.result == TrustCheck::Result::Failed)
        ofSignature.next =
            "Check that certificate, challenge and signature are of the same chip and the same exchange. If they are,\n"
            "do not trust that accessory.";
}

/// The two generations have keys of different kinds.
const Generation& generationOf(const Certificate& certificate)
{
    const bool isRsa = certificate.keyDescription().rfind(kGeneration20B.keyType, 0) == 0;
    return isRsa ? kGeneration20B : kGeneration30;
}

class Verify : public Command
{
public:
    void declare(Arguments& arguments) override
    {
        arguments
            .add("--certificate", m_file, "The chip's certificate, as 'authchip certificate' stores it, in DER or PEM")
            .mustBeAFile()
            .required()
            .shownAs("FILE");
        arguments.add("--challenge", m_challengeText, "The challenge, in hexadecimal").required().shownAs("HEX");
        arguments.add("--signature", m_signatureText, "The chip's answer, in hexadecimal").required().shownAs("HEX");
        m_trust.declare(arguments);
    }

    void interpret() override
    {
        m_challenge = parseBytes(m_challengeText, "verify a challenge");
        m_signature = parseBytes(m_signatureText, "verify a signature");
        m_trust.interpret();
    }

    ExitStatus run(const CommandContext& context) override
    {
        const Trust trust(m_trust.options());
        const Certificate certificate = parseFile(m_file);
        const Generation& generation = generationOf(certificate);
        requireUnexchanged(generation, m_challenge, m_signature);

        Report report;
        report.row("protocol", "protocol", generation.protocol);
        const Evidence evidence = {generation, certificate, m_challenge, m_signature};
        TrustReport examination = examine(evidence, trust);
        adviseOnRecording(examination.checks.front());
        addVerdict(report, evidence, examination);
        answer(context, report, examination, "verify the answer to the challenge");
        return ExitStatus::Success;
    }

private:
    TrustArguments m_trust;
    std::string m_file;
    std::string m_challengeText;
    std::string m_signatureText;
    Bytes m_challenge;
    Bytes m_signature;
};

} // namespace

std::unique_ptr<Command> makeVerify()
{
    return std::make_unique<Verify>();
}

} // namespace VorelKestrel::Tool
