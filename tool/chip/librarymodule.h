#ifndef TOOL_CHIP_LIBRARYMODULE_H
#define TOOL_CHIP_LIBRARYMODULE_H

#include <memory>
#include <string>

#include "tool/chip/chip.h"
#include "tool/chip/chiplocation.h"

namespace VorelKestrel::Tool {

/// The one function of the module libauthchip-chip.so, which alone links the library. The caller owns the result; the
/// other arguments are those of LibraryLog. Throws Failure.
using OpenLibrary = ChipAccess*(const ChipLocation& location, int verbosity, const std::string& logConfig);
constexpr char kOpenLibrary[] = "authchipOpenLibrary";

/**
 * Loads the library, which stays for the rest of the process, and returns the way to the chip through it.
 *
 * Loading the library makes the lock between processes if there is none, and the end of the process removes that lock
 * again. Commands that look at the lock, or make one that stays, must therefore never load it. The others load it late,
 * in the same process: a program of its own would need twice the time to start.
 *
 * Errors: Failure.
 */
std::unique_ptr<ChipAccess> loadLibrary(const ChipLocation& location, int verbosity, const std::string& logConfig);

} // namespace VorelKestrel::Tool

#endif
