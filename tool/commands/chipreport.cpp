#include "tool/commands/chipreport.h"

#include <cerrno>
#include <system_error>

#include <unistd.h>

namespace VorelKestrel::Tool {

std::string describe(const ChipLocation& location)
{
    return location.device + ", address " + addressInHex(location.address);
}

Report startReport(const CommonOptions& options)
{
    Report report;
    report.text("device", describe(options.location))
        .json("device", options.location.device)
        .json("address", options.location.address);
    return report;
}

void addProtocol(Report& report, const Chip& chip)
{
    report
        .text("protocol",
              std::string(chip.generation().protocol) + ", device version " + std::to_string(chip.deviceVersion()))
        .json("protocol", chip.generation().protocol)
        .json("deviceVersion", chip.deviceVersion());
}

Bytes randomChallenge(const Generation& generation)
{
    Bytes challenge(generation.challengeLength);
    if (getentropy(challenge.data(), challenge.size()) != 0)
        throw std::system_error(errno, std::generic_category(), "the system has no random numbers");
    return challenge;
}

} // namespace VorelKestrel::Tool
