#ifndef TOOL_DOCTOR_CHECKS_H
#define TOOL_DOCTOR_CHECKS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tool/doctor/examination.h"

namespace VorelKestrel::Tool {

/// The checks of the doctor, in their order. Each can also be run alone.
const std::vector<Check>& doctorChecks();

/// The node is a device, and opens.
std::vector<Finding> checkNode(Examination& examination);
/// The address has 7 bits, and no kernel driver uses it.
std::vector<Finding> checkAddress(Examination& examination);
/// The lock between processes is sound, all who use the bus share it, and it can be acquired.
std::vector<Finding> checkLock(Examination& examination);
/// The chip answers. Requires: the address is selected, and the lock is held if there is one.
std::vector<Finding> checkChip(Examination& examination);
/// The library has a driver for the device version that the chip answered.
std::vector<Finding> checkGeneration(Examination& examination);

/// The chip's certificate can be read, is unaltered and valid. Requires: as for checkChip(); the generation is known.
std::vector<Finding> checkCertificate(Examination& examination);
/// The chip signs a challenge with the certificate's key. Requires: the same.
std::vector<Finding> checkSignature(Examination& examination);

/// An address that includes the read/write bit. @p found says how that shows.
Finding eightBitAddress(const ChipLocation& location, const std::string& found);
/// Says how a challenge changed on its way to the chip, which now holds @p held. None if it did not change, or if so
/// much differs that the chip shows something else there.
std::optional<std::string> findAlteration(const Bytes& sent, const Bytes& held);

/// What to know about a bus that refused messages, and about one that is slow; empty if there is nothing to know.
/// @p other explains the last refusal that was no missing acknowledgement, if there was one.
std::vector<Finding> notesOnRefusals(int retries, const std::optional<Failure>& other = std::nullopt);
std::vector<Finding> notesOnSpeed(std::chrono::nanoseconds timeOfAByte);

} // namespace VorelKestrel::Tool

#endif
