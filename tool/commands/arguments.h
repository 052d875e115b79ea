#ifndef TOOL_COMMANDS_ARGUMENTS_H
#define TOOL_COMMANDS_ARGUMENTS_H

#include <iosfwd>
#include <optional>
#include <string>

#include "common/hex.h"
#include "tool/chip/diagnosis.h"
#include "tool/report/exitstatus.h"

namespace VorelKestrel::Tool {

/// What the command line asks for. What a command does not use keeps its default.
struct Arguments
{
    std::string command; // "info"; "lock seed" with the words of both levels
    ChipLocation location;
    std::optional<int> busTimeout; // in milliseconds; none leaves the bus controller's own
    bool json = false;
    int verbosity = 0;
    std::string logConfig;            // a property file of log4cplus; empty is none
    std::string outputFile;           // empty is none, "-" is standard output
    bool pem = false;                 // certificate
    std::optional<Bytes> challenge;   // sign; none is a random one
    std::optional<int> reg;           // read, write; none lists the registers
    std::optional<int> length;        // read; none is the register's own
    Bytes data;                       // write
    std::optional<std::string> group; // lock seed: a name or a number
    std::optional<unsigned> mode;     // lock seed
};

/// Either the arguments, or the status with which the program ends now (after --help, or a usage error that CLI11
/// found; what there was to say has been said). Failure (ExitStatus::Usage) for values that make no sense.
struct ParseResult
{
    std::optional<Arguments> arguments;
    ExitStatus status = ExitStatus::Success;
};

ParseResult parseArguments(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace VorelKestrel::Tool

#endif
