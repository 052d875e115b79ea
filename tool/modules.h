#ifndef TOOL_MODULES_H
#define TOOL_MODULES_H

#include <memory>
#include <string>

#include "tool/chip/chip.h"
#include "tool/chip/chiplocation.h"
#include "tool/commands/command.h"

/**
 * The modules are parts of authchip that link what takes long to load: the library, and OpenSSL. authchip loads them
 * for the commands that need them, into its own process and until its end. Each has one function, which throws Failure.
 */
namespace VorelKestrel::Tool {

/// Of libauthchip-chip.so, which alone links the library. The caller owns the result; the other arguments are those of
/// LibraryLog.
using OpenLibrary = ChipAccess*(const ChipLocation& location, int verbosity, const std::string& logConfig);
constexpr char kOpenLibrary[] = "authchipOpenLibrary";

/// Of libauthchip-verify.so, which alone links OpenSSL: makes the command of that name, which the caller owns.
using MakeVerifyingCommand = Command*(const std::string& name);
constexpr char kMakeVerifyingCommand[] = "authchipMakeVerifyingCommand";

/**
 * Loads the library, and returns the way to the chip through it.
 *
 * Loading the library makes the lock between processes if there is none, and the end of the process removes that lock
 * again. Commands that look at the lock, or make one that stays, must therefore never load it.
 *
 * Errors: Failure.
 */
std::unique_ptr<ChipAccess> loadLibrary(const ChipLocation& location, int verbosity, const std::string& logConfig);

} // namespace VorelKestrel::Tool

#endif
