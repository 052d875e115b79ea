#ifndef CAPTURE_CHIPVIEW_H
#define CAPTURE_CHIPVIEW_H

#include <optional>

#include "capture/analysis.h"
#include "common/generations.h"

namespace VorelKestrel::Capture {

/**
 * Follows the messages to the chip at one address, and explains each.
 */
class ChipView
{
public:
    Step describe(const Message& message);

private:
    std::optional<AL::U8> registerOf(const Message& message) const;
    std::string whatOf(const Message& message, std::optional<AL::U8> reg) const;
    std::string writeOf(const Message& message, AL::U8 reg) const;
    std::string readOf(const Message& message, AL::U8 reg) const;
    std::string valueOf(const Message& message, AL::U8 reg) const;
    void findOddities(Step& step);
    void findOdditiesOfWrite(Step& step) const;
    void findOdditiesOfRead(Step& step) const;
    void follow(const Message& message, std::optional<AL::U8> reg);

    std::optional<AL::U8> m_named; // the last register
    const Generation* m_generation = nullptr;
    bool m_isBusy = false; // after a command, until a message is acknowledged
    bool m_hasChallenge = false;
    const Message* m_last = nullptr;
};

/// "certificate page 3"; "register 0x55" if it has no name.
std::string nameOfRegister(AL::U8 reg);
/// The certificate page in a register; 0: none.
int pageOf(AL::U8 reg);

} // namespace VorelKestrel::Capture

#endif
