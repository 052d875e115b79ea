#ifndef TOOL_CHIP_BITSLIP_H
#define TOOL_CHIP_BITSLIP_H

namespace VorelKestrel::Tool {

/// What to do about bytes that arrive shifted by one bit.
inline constexpr char kHowToMendTheSlip[] =
    "The bus controller samples the data line at the wrong time, mostly because it does not wait for a chip that\n"
    "stretches the clock. Try a slower bus clock, another controller, or the pins of this one with the driver "
    "i2c-gpio.";

} // namespace VorelKestrel::Tool

#endif
