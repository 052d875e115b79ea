#include <thread>

#include "common/generations.h"
#include "common/hex.h"
#include "common/patience.h"
#include "tool/chip/advice.h"
#include "tool/doctor/checks.h"

namespace VorelKestrel::Tool {
namespace {

bool isUnanswered(const VersionAnswer& answer)
{
    return !answer.registerSet && isNoAnswer(Step::SetRegister, answer.error);
}

/// Asks once, for the price of a message or two.
VersionAnswer ask(const ScopedDescriptor& node, Effort& effort)
{
    const VersionAnswer answer = askVersion(node);
    effort.messages += answer.registerSet ? 2 : 1;
    return answer;
}

/// Asks until the chip answers, as patiently as the library: a chip that is busy or wakes up refuses some messages.
/// Returns how many.
int askPatiently(Examination& examination)
{
    int refusals = 0;
    examination.answer = ask(examination.node, examination.effort);
    while (isUnanswered(examination.answer) && ++refusals < kAttempts) {
        std::this_thread::sleep_for(kRetryPause);
        ++examination.effort.retries;
        examination.answer = ask(examination.node, examination.effort);
    }
    return refusals;
}

std::string afterRefusals(int refusals)
{
    if (refusals == 0)
        return "answers";
    return "answers, after " + std::to_string(refusals) + (refusals == 1 ? " refusal" : " refusals") +
           ": it was busy or waking up";
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
    const int refusals = askPatiently(examination);
    return {examination.answer.registerRead ? healthy(afterRefusals(refusals)) : explainSilence(examination)};
}

std::vector<Finding> checkGeneration(Examination& examination)
{
    const std::uint8_t version = examination.answer.deviceVersion;
    examination.generation = findGeneration(version);
    if (examination.generation != nullptr)
        return {
            healthy("device version " + std::to_string(version) + ", protocol " + examination.generation->protocol)};
    return {refused("version without driver", explainVersion(version, examination.location))};
}

} // namespace VorelKestrel::Tool
