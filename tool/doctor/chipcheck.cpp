#include <chrono>
#include <thread>

#include "common/generations.h"
#include "common/hex.h"
#include "tool/chip/advice.h"
#include "tool/doctor/checks.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kAttempts = 10; // a chip that is busy or wakes up refuses some
constexpr auto kPause = std::chrono::milliseconds(10);

bool isUnanswered(const VersionAnswer& answer)
{
    return !answer.registerSet && isNoAnswer(Step::SetRegister, answer.error);
}

VersionAnswer askPatiently(const ScopedDescriptor& node)
{
    VersionAnswer answer = askVersion(node);
    for (int attempt = 1; attempt < kAttempts && isUnanswered(answer); ++attempt) {
        std::this_thread::sleep_for(kPause);
        answer = askVersion(node);
    }
    return answer;
}

bool chipAnswersAtHalfTheAddress(const Examination& examination)
{
    if (!selectAddress(examination.node, examination.location.address / 2))
        return false;
    const VersionAnswer answer = askVersion(examination.node);
    return answer.registerRead && findGeneration(answer.deviceVersion) != nullptr;
}

Finding explainSilence(const Examination& examination)
{
    const ChipLocation& location = examination.location;
    const VersionAnswer& answer = examination.answer;
    if (isUnanswered(answer) && mayBeEightBits(location.address) && chipAnswersAtHalfTheAddress(examination))
        return eightBitAddress(location, "nobody answers at " + toHex(static_cast<std::uint32_t>(location.address), 2) +
                                             ", and the chip does at half of it: it is an address of 8 bits");
    const Step step = answer.registerSet ? Step::ReadRegister : Step::SetRegister;
    return refused(causeOfRefusal(step, answer.error), explainRefusal(step, answer.error, location));
}

} // namespace

std::vector<Finding> checkChip(Examination& examination)
{
    examination.answer = askPatiently(examination.node);
    return {examination.answer.registerRead ? healthy("answers") : explainSilence(examination)};
}

std::vector<Finding> checkGeneration(Examination& examination)
{
    const std::uint8_t version = examination.answer.deviceVersion;
    if (const Generation* generation = findGeneration(version))
        return {healthy("device version " + std::to_string(version) + ", protocol " + generation->protocol)};
    return {refused("version without driver", explainVersion(version, examination.location))};
}

} // namespace VorelKestrel::Tool
