#include <cstdio>

#include "tool/doctor/checks.h"

namespace VorelKestrel::Tool {
namespace {

using Microseconds = std::chrono::duration<double, std::micro>;

constexpr double kBitsOfAByte = 9; // with its acknowledgement
/// Less than half the speed of the slowest usual clock, 100 kHz, with which a byte takes 90 microseconds. What adapters
/// and a software bus add to a long message is less than that.
constexpr auto kSlowByte = std::chrono::microseconds(200);

std::string rounded(double number, int digits)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.*f", digits, number);
    return text;
}

} // namespace

std::vector<Finding> notesOnRefusals(int retries, const std::optional<Failure>& other)
{
    if (retries == 0)
        return {};
    const std::string found =
        std::to_string(retries) + (retries == 1 ? " message was" : " messages were") + " refused, and repeated";
    const std::string next = "'authchip info --repeat 1000' counts how often that happens. ";
    if (other)
        return {note(found + "; one with " + other->answer(), next + other->next())};
    return {note(found, next + "If it is not only a chip that wakes up, check the bus clock, the pull-ups and what "
                               "else is on the bus.")};
}

std::vector<Finding> notesOnSpeed(std::chrono::nanoseconds timeOfAByte)
{
    if (timeOfAByte < kSlowByte)
        return {};
    const double microseconds = Microseconds(timeOfAByte).count();
    constexpr double kMicrosecondsOfAMillisecond = 1000;
    return {note("the bus is slow: a byte takes " + rounded(microseconds / kMicrosecondsOfAMillisecond, 1) +
                     " ms, as at " + rounded(kBitsOfAByte / microseconds * kMicrosecondsOfAMillisecond, 0) + " kHz",
                 "Set the bus clock to 100 or 400 kHz ('clock-frequency' in the device tree), or ask the chip's maker "
                 "why it stretches the clock.")};
}

} // namespace VorelKestrel::Tool
