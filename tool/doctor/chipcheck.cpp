#include <cerrno>
#include <thread>

#include <unistd.h>

#include "common/generations.h"
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

/// Whether there is a device. Deliberate: it is read from only, one byte. A write could change what it does, and whose
/// it is, nobody knows.
bool deviceAnswersAt(const Examination& examination, int address)
{
    std::uint8_t byte = 0;
    return selectAddress(examination.node, address) && read(examination.node.get(), &byte, sizeof(byte)) == 1;
}

Finding decimalAddress(const ChipLocation& location)
{
    const std::string meant = addressInHex(*location.inHexadecimal);
    return {"decimal address",
            "no chip answers at " + addressInHex(location.address) + ", and one answers at " + meant +
                ": the address " + std::to_string(location.address) + " was read as decimal",
            "Write it in hexadecimal: --address " + meant + "."};
}

/// Looks for the chip at the addresses that may be meant by the one that was typed; at no others.
Finding explainSilence(const Examination& examination)
{
    const ChipLocation& location = examination.location;
    const VersionAnswer& answer = examination.answer;
    const int half = location.address / 2;
    if (isUnanswered(answer) && location.inHexadecimal && deviceAnswersAt(examination, *location.inHexadecimal))
        return decimalAddress(location);
    if (isUnanswered(answer) && mayBeEightBits(location.address) && deviceAnswersAt(examination, half))
        return eightBitAddress(location, "no chip answers at " + addressInHex(location.address) +
                                             ", and one answers at " + addressInHex(half));
    const Step step = answer.registerSet ? Step::ReadRegister : Step::SetRegister;
    return refused(causeOfRefusal(step, answer.error), explainRefusal(step, answer.error, location));
}

/// Whether the next message may do what this one did not. Another master may be done then, or a controller awake.
bool mayPass(const VersionAnswer& answer)
{
    return !answer.registerSet && (answer.error == ETIMEDOUT || answer.error == EAGAIN || answer.error == EIO);
}

Finding noteOnFirstMessage(int error, const ChipLocation& location)
{
    const Failure failure = explainRefusal(Step::SetRegister, error, location);
    return note(
        "the first message failed, and the next one did not: " + failure.answer(),
        "If the first one after a pause fails, the bus controller is suspended in between: 'echo on "
        ">/sys/bus/i2c/devices/i2c-N/../power/control', with the number of the bus, keeps it awake. Otherwise: " +
            failure.next());
}

} // namespace

std::vector<Finding> checkChip(Examination& examination)
{
    int refusals = askPatiently(examination);
    const VersionAnswer first = examination.answer;
    if (mayPass(first)) {
        ++examination.effort.retries;
        std::this_thread::sleep_for(kRetryPause);
        refusals += askPatiently(examination);
    }
    if (!examination.answer.registerRead)
        return {explainSilence(examination)};
    std::vector<Finding> findings = notesOnRefusals(refusals);
    if (mayPass(first))
        findings.push_back(noteOnFirstMessage(first.error, examination.location));
    findings.insert(findings.begin(), healthy(afterRefusals(refusals)));
    return findings;
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
