#ifndef TOOL_CHIP_ADVICE_H
#define TOOL_CHIP_ADVICE_H

#include <cstdint>

#include "tool/chip/chiplocation.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/// The first steps towards a chip. The system can refuse each of them.
enum class Step
{
    OpenNode,
    SetTimeout, // of the bus; only if it is asked for
    SelectAddress,
    SetRegister,  // the chip takes the number of a register
    ReadRegister, // the chip delivers the register's content
    WriteRegister // the chip takes more bytes than the number
};

/// The cause of what is no node of an I2C bus.
constexpr char kNoI2cNode[] = "no I2C node";

// Both read the one table of refusals: what a step refused with a system error means, and what to do about it.

/// Explains a step that the system refused with @p error; 0: it refused nothing, but the byte that was asked for is
/// missing.
Failure explainRefusal(Step step, int error, const ChipLocation& location);
/// The same in two or three words, for programs: "no permission".
const char* causeOfRefusal(Step step, int error);

/// Explains a device version for which the library has no driver.
Failure explainVersion(std::uint8_t deviceVersion, const ChipLocation& location);

/// No device acknowledged the address.
bool isNoAnswer(Step step, int error);
/// Whether @p address can be an address with the read/write bit. An 8-bit address below 0x80 is also a valid 7-bit
/// address, but no chip uses it.
bool mayBeEightBits(int address);

} // namespace VorelKestrel::Tool

#endif
