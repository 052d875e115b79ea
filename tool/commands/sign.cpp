#include "tool/commands/command.h"

#include <utility>

#include "common/filecontent.h"
#include "common/numbers.h"
#include "tool/commands/arguments.h"
#include "tool/commands/chipreport.h"
#include "tool/commands/output.h"
#include "tool/commands/values.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

Bytes readChallenge(const std::string& path)
{
    constexpr std::size_t kLongest = 4096; // longer than any challenge
    const std::string tried = "read a challenge from " + path;
    FileContent content = readFile(path, kLongest);
    if (content.error != 0)
        throw Failure(kWrongUsage, tried, describeSystemError(content.error), "Name a file that this user can read.");
    if (content.isTooLong)
        throw Failure(kWrongUsage, tried, "It has more than " + inBytes(kLongest),
                      "Name a file that contains only the challenge.");
    return std::move(content.bytes);
}

void requireLength(const Bytes& challenge, const Generation& generation)
{
    if (challenge.size() == generation.challengeLength)
        return;
    throw Failure(kWrongUsage, "sign a challenge of " + inBytes(challenge.size()),
                  "A chip of protocol " + std::string(generation.protocol) + " signs " +
                      inBytes(generation.challengeLength) + ", the length of a " + generation.digest + " digest",
                  "Give " + inBytes(generation.challengeLength) + " (" +
                      std::to_string(2 * generation.challengeLength) +
                      " hexadecimal digits), or omit the challenge for a random one.");
}

/// The library accepts an answer of any length.
void requireAnswer(const Bytes& signature, const Generation& generation, const ChipLocation& location)
{
    if (signature.size() == generation.responseLength)
        return;
    throw Failure("wrong length", "have a challenge signed by the chip on " + describe(location),
                  "The chip reports an answer of " + inBytes(signature.size()) + " (register 0x11); protocol " +
                      generation.protocol + " has " + std::to_string(generation.responseLength),
                  "Try again. If it fails again, reset the chip. -vv shows every message to it.");
}

class Sign : public Command
{
public:
    void declare(Arguments& arguments) override
    {
        const auto challenge =
            arguments.add("--challenge", m_challengeText, "The challenge in hexadecimal").shownAs("HEX");
        arguments.add("--challenge-file", m_challengeFile, "A file with the bytes of the challenge")
            .mustBeAFile()
            .excludes(challenge)
            .shownAs("FILE");
        m_output.declare(arguments, "Store the bytes of the signature; - is standard output");
    }

    void interpret() override
    {
        if (!m_challengeText.empty())
            m_challenge = parseBytes(m_challengeText, "sign a challenge");
        if (!m_challengeFile.empty())
            m_challenge = readChallenge(m_challengeFile);
    }

    bool isRepeatable() const override { return true; }

    ExitStatus run(const CommandContext& context) override
    {
        m_output.requirePlace(context.options.json);
        const auto chip = context.chips->detect();
        const Bytes challenge = m_challenge ? *m_challenge : randomChallenge(chip->generation());
        requireLength(challenge, chip->generation());
        const Bytes signature = chip->sign(challenge);
        requireAnswer(signature, chip->generation(), context.options.location);
        if (!m_output.store(signature, context.answer))
            return ExitStatus::Success;

        auto report = startReport(context.options);
        addProtocol(report, *chip);
        report.hexRow("challenge", "challenge", challenge).hexRow("signature", "signature", signature);
        context.print(report);
        return ExitStatus::Success;
    }

private:
    OutputOption m_output;
    std::string m_challengeText;
    std::string m_challengeFile;
    std::optional<Bytes> m_challenge; // none: a random one
};

} // namespace

std::unique_ptr<Command> makeSign()
{
    return std::make_unique<Sign>();
}

} // namespace VorelKestrel::Tool
