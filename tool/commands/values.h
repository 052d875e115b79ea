#ifndef TOOL_COMMANDS_VALUES_H
#define TOOL_COMMANDS_VALUES_H

#include <chrono>
#include <string>

#include "common/bytes.h"

namespace CLI {
class Validator;
}

namespace VorelKestrel::Tool {

// Values of the command line. Each throws Failure (ExitStatus::Usage), which says what is allowed, for anything else.

/// An address up to @p maximum. For a larger one that can only be an 8-bit address, the 7-bit address is named.
int parseAddress(const std::string& text, int maximum);
/// A timeout in milliseconds.
int parseBusTimeout(const std::string& text);
/// In seconds.
int parseLockTimeout(const std::string& text);
/// How long to wait for a chip; in seconds.
int parseWait(const std::string& text);
/// "90s", "30m", "8h" or "2d".
std::chrono::seconds parseSpan(const std::string& text);
int parseRegister(const std::string& text);
/// A length of data in a register; bytes.
int parseLength(const std::string& text);
/// @p tried  what the bytes are for: "sign a challenge".
Bytes parseBytes(const std::string& text, const std::string& tried);
/// Checks that a file has the form of a log4cplus property file, which log4cplus itself does not do.
void requireProperties(const std::string& path);
/// CLI11's check that a file exists, without the type that CLI11 would show a second time.
CLI::Validator existingFile();

} // namespace VorelKestrel::Tool

#endif
