#include "tool/commands/command.h"

#include "authchipdriver/registermap.h"
#include "common/hex.h"
#include "common/numbers.h"
#include "tool/commands/chipreport.h"

namespace VorelKestrel::Tool {
namespace {

/// A length that no chip of the generation can have says more about the bus than about the certificate.
std::string describeLength(int length, const Generation& generation)
{
    const int room = generation.certificatePages * ACD::kCertificatePageSize;
    const std::string text = inBytes(static_cast<std::size_t>(length));
    if (length == 0)
        return text + ": the chip has none";
    return length <= room
               ? text
               : text + ", which is wrong: protocol " + generation.protocol + " has room for " + std::to_string(room);
}

class Info : public Command
{
public:
    bool isRepeatable() const override { return true; }

    ExitStatus run(const CommandContext& context) override
    {
        const auto chip = context.chips->detect();
        const auto identity = chip->identity();

        auto report = startReport(context.options);
        addProtocol(report, *chip);
        report
            .text("spoken by the chip",
                  std::to_string(identity.protocolMajorVersion) + "." + std::to_string(identity.protocolMinorVersion))
            .json("protocolMajor", identity.protocolMajorVersion)
            .json("protocolMinor", identity.protocolMinorVersion);
        report.text("firmware version", std::to_string(identity.firmwareVersion))
            .json("firmwareVersion", identity.firmwareVersion);
        report.text("device ID", toHex(identity.deviceId, 8)).json("deviceId", identity.deviceId);
        report.text("longest challenge", inBytes(static_cast<std::size_t>(identity.challengeMaximumLength)))
            .json("challengeMaximumLength", identity.challengeMaximumLength);
        report.text("longest response", inBytes(static_cast<std::size_t>(identity.responseMaximumLength)))
            .json("responseMaximumLength", identity.responseMaximumLength);
        report.text("certificate", describeLength(identity.certificateLength, chip->generation()))
            .json("certificateLength", identity.certificateLength);
        context.print(report);
        return ExitStatus::Success;
    }
};

} // namespace

std::unique_ptr<Command> makeInfo()
{
    return std::make_unique<Info>();
}

} // namespace VorelKestrel::Tool
