#ifndef TOOL_COMMANDS_VALUES_H
#define TOOL_COMMANDS_VALUES_H

#include <chrono>
#include <optional>
#include <string>

#include "common/bytes.h"

namespace VorelKestrel::Tool {

// Parsers for values of the command line. For an invalid value each throws Failure (ExitStatus::Usage), which says
// what is allowed.

/// An address up to @p maximum. If a larger one can be an 8-bit address, the Failure names its 7-bit address.
int parseAddress(const std::string& text, int maximum);
/// Refuses the path of a node with quotes, blanks or a carriage return around it, unless there is such a file.
void requirePlainPath(const std::string& device);
/// The other address that a decimal number can mean if somebody has forgotten the 0x: 0x54 for "54". None if no chip
/// can have it.
std::optional<int> addressInHexadecimal(const std::string& text);
/// A timeout in milliseconds.
int parseBusTimeout(const std::string& text);
/// In seconds.
int parseLockTimeout(const std::string& text);
/// How long to wait for a chip; in seconds.
int parseWait(const std::string& text);
/// "90s", "30m", "8h" or "2d".
std::chrono::seconds parseSpan(const std::string& text);
int parseRegister(const std::string& text);
/// The length of a register, in bytes.
int parseLength(const std::string& text);
/// @p tried  what the bytes are for: "sign a challenge".
Bytes parseBytes(const std::string& text, const std::string& tried);
/// Checks the form of a log4cplus property file, because log4cplus does not.
void requireProperties(const std::string& path);

} // namespace VorelKestrel::Tool

#endif
