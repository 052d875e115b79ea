#include "tool/commands/chipreport.h"

#include <stdexcept>

#include <openssl/rand.h>

#include "common/hex.h"

namespace VorelKestrel::Tool {

std::string describe(const ChipLocation& location)
{
    return location.device + ", address " + toHex(static_cast<std::uint32_t>(location.address), 2);
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
    if (RAND_bytes(challenge.data(), static_cast<int>(challenge.size())) != 1)
        throw std::runtime_error("no random numbers");
    return challenge;
}

} // namespace VorelKestrel::Tool
