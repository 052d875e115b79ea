#ifndef TOOL_COMMANDS_COMMAND_H
#define TOOL_COMMANDS_COMMAND_H

#include <chrono>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "tool/chip/chiplocation.h"
#include "tool/report/exitstatus.h"

namespace VorelKestrel::Tool {

class Arguments;
class BusMeter;
class ChipAccess;
class Report;

/// The options that every command takes.
struct CommonOptions
{
    ChipLocation location;
    std::optional<int> busTimeout;                   // in milliseconds; none leaves the bus controller's own
    std::optional<std::chrono::seconds> lockTimeout; // none: without limit
    bool json = false;
    bool stats = false; // show what each operation cost on the bus
    int verbosity = 0;
    std::string logConfig; // a log4cplus property file; empty: none
};

/// What a command works with.
struct CommandContext
{
    const CommonOptions& options;
    std::ostream& answer;
    ChipAccess* chips; // never null for a command that Needs::Library, null for all others
    BusMeter* meter;   // like chips

    /// Prints the answer as text, or as JSON with --json.
    void print(Report& report) const;
};

/**
 * One command: its options and its work. Each command has its own file and a row in commandTable().
 *
 * Errors: interpret() and run() throw Failure.
 */
class Command
{
public:
    Command() = default;
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    /// Adds the command's options and arguments, which this object stores.
    virtual void declare(Arguments& /*arguments*/) {}
    /// Parses the values of the options. Throws Failure (ExitStatus::Usage) for invalid ones.
    virtual void interpret() {}
    /// The largest address that the command line may name.
    virtual int largestAddress() const { return kSevenBitMaximum; }

    /// Whether it has the options of RepeatArguments. A repeatable command changes nothing.
    virtual bool isRepeatable() const { return false; }

    /// Does the work and prints the answer. A repeatable command may be run any number of times.
    virtual ExitStatus run(const CommandContext& context) = 0;
};

/// What a command needs before it can run.
enum class Needs
{
    Nothing,
    Location, // --device and --address
    Library   // the same, and the library, which is loaded for it
};

/// A row of the table of commands.
struct CommandRow
{
    const char* name; // "info"; "lock seed" is the command "seed" of the group "lock"
    const char* help;
    Needs needs;
    std::unique_ptr<Command> (*make)(); // null: a group, whose commands follow
};

} // namespace VorelKestrel::Tool

#endif
